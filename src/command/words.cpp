#include "command/words.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>

namespace velmora {
namespace {

constexpr double most = 1e15;  // beyond it, no digits are worth reading

bool is_readable(std::optional<double> number) { return number && std::abs(*number) <= most; }

// A number with so many digits behind the point, in every locale.
std::string fixed_text(double number, int digits) {
  std::array<char, 64> text;
  const auto end = std::to_chars(text.begin(), text.end(), number, std::chars_format::fixed, digits).ptr;
  return {text.begin(), end};
}

}  // namespace

std::string count_text(std::optional<double> number) {
  return is_readable(number) ? fixed_text(std::trunc(*number) + 0.0, 0) : "?";
}

std::string percent_text(std::optional<double> share) {
  if (!is_readable(share)) return "?";
  const double rounded = std::round(*share * 100);
  if (rounded == 0 && *share > 0) return "< 1 %";
  return fixed_text(rounded + 0.0, 0) + " %";
}

std::string decibels_text(std::optional<double> decibels) {
  if (!is_readable(decibels)) return "?";
  // Adding 0 turns a negative zero into a positive one.
  const double tenths = std::round(*decibels * 10) + 0.0;
  const bool is_whole = std::fmod(tenths, 10) == 0;
  return (tenths > 0 ? "+" : "") + fixed_text(tenths / 10, is_whole ? 0 : 1) + " dB";
}

std::string printable(std::string_view text) {
  std::string out(text);
  const auto is_control = [](char byte) { return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F; };
  std::replace_if(out.begin(), out.end(), is_control, '?');
  return out;
}

}  // namespace velmora
