// Linux error numbers in Windows' words.
#pragma once

#include <cstdint>

namespace velmora {

// The Winsock code (winsock2.h) for an errno of a socket call. Without an equivalent:
// WSASYSCALLFAILURE (10107).
[[nodiscard]] int winsock_from_errno(int error);

// The Win32 code (winerror.h) for an errno of a file or memory call. Without an equivalent:
// ERROR_GEN_FAILURE (31).
[[nodiscard]] std::uint32_t win32_from_errno(int error);

}  // namespace velmora
