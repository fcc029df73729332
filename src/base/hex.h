// Hexadecimal digits. Pure.
#pragma once

#include <string>
#include <string_view>

namespace velmora {

inline constexpr std::string_view lower_hex_digits = "0123456789abcdef";

// Returns 0..15 for a digit of either case (char or char16_t), and -1 for anything else.
template <typename Unit>
[[nodiscard]] constexpr int hex_digit_value(Unit unit) {
  if (unit >= Unit{'0'} && unit <= Unit{'9'}) return unit - '0';
  if (unit >= Unit{'a'} && unit <= Unit{'f'}) return unit - 'a' + 10;
  if (unit >= Unit{'A'} && unit <= Unit{'F'}) return unit - 'A' + 10;
  return -1;
}

// Appends two lower-case digits.
inline void append_hex(std::string& out, unsigned char byte) {
  out += lower_hex_digits[byte >> 4];
  out += lower_hex_digits[byte & 0xF];
}

}  // namespace velmora
