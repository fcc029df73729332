// How the test effect makes the mapping, which is not always how the service does it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/shared_memory.h"

namespace velmora::effect {

// The Win32 error code of a failure. Else `out` is assigned: a new object of `size` zero bytes, or with
// `already_existed` the one that another process made first.
[[nodiscard]] std::optional<std::uint32_t> make_mapping(std::u16string_view name, std::size_t size,
                                                        SharedMapping& out, bool& already_existed);

}  // namespace velmora::effect
