// What the test effect does in its own way on each system.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/shared_memory.h"

namespace velmora::effect {

// The path of a directory that is given as UTF-8. On Linux, Windows paths lead below the folder of the
// drives, as in the service.
[[nodiscard]] std::filesystem::path capture_path(const std::string& text);

// The Win32 error code of a failure. Else `out` is assigned: a new object of `size` zero bytes, or with
// `already_existed` the one that another process made first.
[[nodiscard]] std::optional<std::uint32_t> make_mapping(std::u16string_view name, std::size_t size,
                                                        SharedMapping& out, bool& already_existed);

}  // namespace velmora::effect
