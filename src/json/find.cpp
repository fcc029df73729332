#include "json/find.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/ascii.h"

namespace velmora {
namespace {

// The body behind the colon that follows the key.
std::optional<std::string_view> find_value(std::string_view body, std::string_view key) {
  for (std::size_t quote = body.find('"'); quote != std::string_view::npos;
       quote = body.find('"', quote + 1)) {
    const std::string_view behind = body.substr(quote + 1);
    if (!behind.starts_with(key) || !behind.substr(key.size()).starts_with('"')) continue;
    const std::size_t colon = behind.find(':', key.size() + 1);
    if (colon == std::string_view::npos) return std::nullopt;
    return behind.substr(colon + 1);
  }
  return std::nullopt;
}

// The same, with the white space in front of the value skipped.
std::optional<std::string_view> find_trimmed_value(std::string_view body, std::string_view key) {
  std::optional<std::string_view> value = find_value(body, key);
  while (value && !value->empty() && is_space(value->front())) value->remove_prefix(1);
  return value;
}

// The byte that a backslash and `letter` stand for.
std::optional<char> unescape(char letter) {
  switch (letter) {
    case '"':
    case '/':
    case '\\': return letter;
    case 'b': return '\b';
    case 'f': return '\f';
    case 'n': return '\n';
    case 'r': return '\r';
    case 't': return '\t';
    default: return std::nullopt;
  }
}

// The number `digits` * 10^`scale`.
struct Decimal {
  std::string digits;  // without leading zeros; empty for zero
  std::int64_t scale = 0;
  bool any = false;  // there was a digit at all
};

// Takes a run of decimal digits with at most one point off `text`. Of the digits behind the limit it only
// keeps whether there is another than 0 among them: as a last 1 it rounds like all of them would.
Decimal take_decimal(std::string_view& text) {
  constexpr std::size_t digits_limit = 128;  // a float and the half between two need 113
  Decimal decimal;
  bool point = false;
  bool rest = false;
  for (; !text.empty(); text.remove_prefix(1)) {
    const char byte = text.front();
    if (byte == '.' && !point) {
      point = true;
      continue;
    }
    if (byte < '0' || byte > '9') break;
    decimal.any = true;
    const bool kept = decimal.digits.size() < digits_limit;
    if (kept && (byte != '0' || !decimal.digits.empty())) decimal.digits += byte;
    rest = rest || (!kept && byte != '0');
    decimal.scale += (kept ? 0 : 1) - (point ? 1 : 0);
  }
  if (rest) {
    decimal.digits += '1';
    --decimal.scale;
  }
  return decimal;
}

// The exponent at the start of `text`, cut to a billion either way; 0 when there is none.
std::int64_t read_exponent(std::string_view text) {
  constexpr std::int64_t limit = 1'000'000'000;
  if (text.empty() || (text.front() != 'e' && text.front() != 'E')) return 0;
  text.remove_prefix(1);
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  std::int64_t exponent = 0;
  for (; !text.empty() && text.front() >= '0' && text.front() <= '9'; text.remove_prefix(1)) {
    exponent = std::min(limit, exponent * 10 + (text.front() - '0'));
  }
  return negative ? -exponent : exponent;
}

// The same number in few bytes, for a text so long that it holds thousands of digits: mingw-w64's strtof
// takes time that grows with their square, and loses its way with exponents that belong to them.
std::string shorten_number(std::string_view text) {
  constexpr std::size_t short_enough = 256;
  if (text.size() <= short_enough) return std::string(text);
  std::string_view rest = text;
  std::string sign;
  if (rest.front() == '-' || rest.front() == '+') {
    sign = rest.front();
    rest.remove_prefix(1);
  }
  if (rest.starts_with("0x") || rest.starts_with("0X")) return std::string(text);
  const Decimal decimal = take_decimal(rest);
  if (!decimal.any) return std::string(text);
  const std::string digits = decimal.digits.empty() ? "0" : decimal.digits;
  return sign + digits + 'e' + std::to_string(decimal.scale + read_exponent(rest));
}

}  // namespace

std::optional<bool> json_find_bool(std::string_view body, std::string_view key) {
  const std::optional<std::string_view> value = find_trimmed_value(body, key);
  if (!value) return std::nullopt;
  if (value->starts_with("true")) return true;
  if (value->starts_with("false")) return false;
  return std::nullopt;
}

std::optional<float> json_find_number(std::string_view body, std::string_view key) {
  const std::optional<std::string_view> value = find_trimmed_value(body, key);
  if (!value) return std::nullopt;
  // No number goes on behind one of these, so that the copy is short in a long body.
  const std::string terminated = shorten_number(value->substr(0, value->find_first_of(",}] \t\n\v\f\r")));
  char* end = nullptr;
  const float number = std::strtof(terminated.c_str(), &end);
  if (end == terminated.c_str() || !std::isfinite(number)) return std::nullopt;
  return number;
}

std::optional<std::string> json_find_string(std::string_view body, std::string_view key) {
  const std::optional<std::string_view> value = find_trimmed_value(body, key);
  if (!value || !value->starts_with('"')) return std::nullopt;
  std::string out;
  for (std::size_t index = 1; index < value->size(); ++index) {
    const char byte = (*value)[index];
    if (byte == '"') return out;
    if (static_cast<unsigned char>(byte) < 0x20) return std::nullopt;
    if (byte != '\\') {
      out += byte;
      continue;
    }
    if (++index == value->size()) return std::nullopt;
    const std::optional<char> plain = unescape((*value)[index]);
    if (!plain) return std::nullopt;
    out += *plain;
  }
  return std::nullopt;
}

std::optional<std::string_view> json_find_array(std::string_view body, std::string_view key) {
  const std::optional<std::string_view> value = find_value(body, key);
  if (!value) return std::nullopt;
  const std::size_t open = value->find('[');
  if (open == std::string_view::npos) return std::nullopt;
  const std::string_view inside = value->substr(open + 1);
  std::size_t depth = 1;
  for (std::size_t index = 0; index < inside.size(); ++index) {
    const char byte = inside[index];
    if (byte == '[' || byte == '{') ++depth;
    if (byte == ']' || byte == '}') --depth;
    if (depth == 0) return inside.substr(0, index);
  }
  return std::nullopt;
}

}  // namespace velmora
