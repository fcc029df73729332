// Byte strings that are compared, trimmed and decoded as ASCII. Pure: no locale.
#pragma once

#include <string>
#include <string_view>

namespace velmora {

// The C `isspace` in the C locale: blank, \t, \n, \v, \f, \r.
[[nodiscard]] constexpr bool is_space(char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

// `text` without the white space at both ends.
[[nodiscard]] std::string_view trim(std::string_view text);
[[nodiscard]] std::string trim_copy(std::string_view text);

// `text` with A..Z in lower case. Every other byte is unchanged.
[[nodiscard]] std::string to_lower_copy(std::string_view text);

// Percent-decoding with `+` as a blank, also in a path. A `%` that two hexadecimal digits do not follow is
// unchanged.
[[nodiscard]] std::string url_decode(std::string_view text);

}  // namespace velmora
