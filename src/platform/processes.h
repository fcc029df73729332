// The processes of this machine.
#pragma once

#include <cstdint>
#include <string>

namespace velmora {

// The path of a process's program: OpenProcess with PROCESS_QUERY_LIMITED_INFORMATION (0x1000), then
// QueryFullProcessImageNameW with a buffer of 260 characters. Empty when the process cannot be opened or
// asked. Elsewhere than on Windows it is the system's own path, without backslashes.
[[nodiscard]] std::u16string process_image_path(std::uint32_t process_id);

}  // namespace velmora
