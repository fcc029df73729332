// Maps Linux error numbers to Windows error codes.
#pragma once

#include <cstdint>

namespace velmora {

// Returns the Winsock code (winsock2.h) for an errno of a socket call, or WSASYSCALLFAILURE (10107).
[[nodiscard]] int winsock_from_errno(int error);

// Returns the Win32 code (winerror.h) for an errno of a file or memory call, or ERROR_GEN_FAILURE (31).
[[nodiscard]] std::uint32_t win32_from_errno(int error);

}  // namespace velmora
