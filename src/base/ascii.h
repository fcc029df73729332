// ASCII case, white space and percent-decoding. Pure, no locale. Bytes and units outside ASCII never change.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace velmora {

template <typename Unit>
[[nodiscard]] constexpr bool is_ascii_letter(Unit unit) {
  return (unit >= Unit{'a'} && unit <= Unit{'z'}) || (unit >= Unit{'A'} && unit <= Unit{'Z'});
}

template <typename Unit>
[[nodiscard]] constexpr Unit ascii_lower(Unit unit) {
  return unit >= Unit{'A'} && unit <= Unit{'Z'} ? static_cast<Unit>(unit - 'A' + 'a') : unit;
}

template <typename Unit>
[[nodiscard]] constexpr Unit ascii_upper(Unit unit) {
  return unit >= Unit{'a'} && unit <= Unit{'z'} ? static_cast<Unit>(unit - 'a' + 'A') : unit;
}

// Compares without regard to the case of ASCII letters, as _wcsicmp does in the C locale.
[[nodiscard]] constexpr bool equal_ignoring_case(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return ascii_lower(a) == ascii_lower(b); });
}
[[nodiscard]] constexpr bool equal_ignoring_case(std::u16string_view left, std::u16string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char16_t a, char16_t b) { return ascii_lower(a) == ascii_lower(b); });
}

// isspace() in the C locale: blank, \t, \n, \v, \f, \r.
[[nodiscard]] constexpr bool is_space(char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

// Removes white space from both ends. The view points into `text`.
[[nodiscard]] constexpr std::string_view trim(std::string_view text) {
  while (!text.empty() && is_space(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_space(text.back())) text.remove_suffix(1);
  return text;
}
[[nodiscard]] std::string trim_copy(std::string_view text);

// Converts A..Z to lower case.
[[nodiscard]] std::string to_lower_copy(std::string_view text);

// Decodes %XX and turns `+` into a blank, in paths too. A `%` without two hexadecimal digits is kept.
[[nodiscard]] std::string url_decode(std::string_view text);

}  // namespace velmora
