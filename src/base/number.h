// Numbers in text. Pure: no state, no locale.
#pragma once

#include <optional>
#include <string_view>

namespace velmora {

// The float at the start of `text`, as C's `strtof` reads it in the C locale and rounding to nearest, but for
// white space in front, which is no number here. What follows the number is ignored. Beyond the range of a
// float the result is an infinity or a signed zero. None where no number begins.
[[nodiscard]] std::optional<float> read_float(std::string_view text);

}  // namespace velmora
