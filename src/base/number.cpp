#include "base/number.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "base/hex.h"

namespace velmora {
namespace {

// Larger than any exponent that matters, and small enough that adding a text length cannot overflow.
constexpr std::int64_t exponent_limit = 1'000'000'000'000;

bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }

// Reads the exponent after `letter` (either case) at the start of `text`. 0 if it is incomplete.
std::int64_t read_exponent(std::string_view text, char letter) {
  if (text.empty() || (text.front() | 0x20) != letter) return 0;
  text.remove_prefix(1);
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  std::int64_t exponent = 0;
  for (; !text.empty() && is_digit(text.front()); text.remove_prefix(1)) {
    exponent = std::min(exponent_limit, exponent * 10 + (text.front() - '0'));
  }
  return negative ? -exponent : exponent;
}

// For a nonzero decimal number out of float range: true for an underflow, false for an overflow.
bool is_too_small(std::string_view text) {
  std::int64_t scale = 0;  // of the first nonzero digit: 1 for 1.5, 0 for 0.15
  bool found = false;
  bool point = false;
  for (; !text.empty() && (is_digit(text.front()) || (text.front() == '.' && !point));
       text.remove_prefix(1)) {
    if (text.front() == '.') {
      point = true;
      continue;
    }
    found = found || text.front() != '0';
    if (found && !point) ++scale;
    if (!found && point) --scale;
  }
  return scale + read_exponent(text, 'e') < 0;
}

// Reads an unsigned decimal number, "inf..." or "nan...".
std::optional<float> read_decimal(std::string_view text) {
  float number = 0;
  const std::errc error = std::from_chars(text.data(), text.data() + text.size(), number).ec;
  if (error == std::errc::invalid_argument) return std::nullopt;
  if (error != std::errc::result_out_of_range) return number;
  return is_too_small(text) ? 0.0f : std::numeric_limits<float>::infinity();
}

// Returns 2 to the power of `exponent`, -1022..1023. std::ldexp would need libm.
double power_of_two(std::int64_t exponent) {
  constexpr std::int64_t exponent_bias = 1023;  // IEEE 754, binary64
  constexpr int fraction_bits = 52;
  return std::bit_cast<double>(static_cast<std::uint64_t>(exponent + exponent_bias) << fraction_bits);
}

// Reads a hexadecimal number after its "0x". std::from_chars would accept a missing digit before "p" and
// round differently near the smallest float.
std::optional<float> read_hexadecimal(std::string_view text) {
  // Keep 48 bits of digits, and set the lowest bit if any later digit is nonzero. The double is then exact,
  // so the conversion to float is the only rounding.
  constexpr std::uint64_t full = std::uint64_t{1} << 44;
  std::uint64_t digits = 0;
  std::int64_t exponent = 0;
  bool any = false;
  bool point = false;
  for (; !text.empty(); text.remove_prefix(1)) {
    if (text.front() == '.' && !point) {
      point = true;
      continue;
    }
    const int digit = hex_digit_value(text.front());
    if (digit < 0) break;
    any = true;
    if (digits < full) {
      digits = digits * 16 + static_cast<std::uint64_t>(digit);
      exponent -= point ? 4 : 0;
    } else {
      digits |= digit != 0 ? 1 : 0;
      exponent += point ? 0 : 4;
    }
  }
  if (!any) return std::nullopt;
  constexpr std::int64_t beyond_float = 400;
  exponent = std::clamp(exponent + read_exponent(text, 'p'), -beyond_float, beyond_float);
  const double exact = static_cast<double>(digits) * power_of_two(exponent);
  constexpr double halfway_to_infinity = 0x1.ffffffp127;
  if (exact >= halfway_to_infinity) return std::numeric_limits<float>::infinity();
  return static_cast<float>(exact);
}

std::optional<float> read_unsigned(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) {
    // "0x" without a digit is the number 0, followed by other text.
    return read_hexadecimal(text.substr(2)).value_or(0.0f);
  }
  if (text.starts_with('-')) return std::nullopt;
  return read_decimal(text);
}

}  // namespace

std::optional<float> read_float(std::string_view text) {
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  const std::optional<float> number = read_unsigned(text);
  return number && negative ? -*number : number;
}

}  // namespace velmora
