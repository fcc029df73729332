// Byte string helpers of the HTTP side. Pure.
#pragma once

#include <string>
#include <string_view>

namespace velmora {

// The C `isspace` in the C locale: blank, \t, \n, \v, \f, \r.
[[nodiscard]] constexpr bool is_space(char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

// `text` without the white space at both ends.
[[nodiscard]] std::string_view trim(std::string_view text);
[[nodiscard]] std::string trim_copy(std::string_view text);

// `text` with A..Z in lower case; every other byte as it is.
[[nodiscard]] std::string to_lower_copy(std::string_view text);

// `text` in a form that can stand between double quotes in JSON. UTF-8 and 0x7F pass as they are, and so
// does the slash.
[[nodiscard]] std::string json_escape(std::string_view text);
// The same, appended to `out`.
void append_escaped(std::string& out, std::string_view text);

// Percent-decoding with `+` as a blank, also in a path. A `%` without two hexadecimal digits behind it stays
// as it is.
[[nodiscard]] std::string url_decode(std::string_view text);

// The path that a UTF-8 text names, as paths stand above the platform: UTF-8, each ill-formed stretch
// replaced by U+FFFD, just as the conversion to wide text would. Empty for empty text.
[[nodiscard]] std::string utf8_to_path(std::string_view text);

}  // namespace velmora
