// Parsing numbers. Pure: no state, no locale.
#pragma once

#include <optional>
#include <string_view>

namespace velmora {

// Reads a float at the start of `text` like strtof in the C locale, rounding to nearest. Unlike strtof, it
// does not skip leading white space. Text after the number is ignored. Out of range gives an infinity or a
// signed zero. Returns no value if `text` does not start with a number.
[[nodiscard]] std::optional<float> read_float(std::string_view text);

}  // namespace velmora
