#include "base/ascii.h"

#include <cstddef>

#include "base/hex.h"

namespace velmora {

std::string trim_copy(std::string_view text) { return std::string(trim(text)); }

std::string to_lower_copy(std::string_view text) {
  std::string out(text);
  for (char& byte : out) byte = ascii_lower(byte);
  return out;
}

std::string url_decode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t index = 0; index < text.size(); ++index) {
    if (text[index] == '+') {
      out += ' ';
      continue;
    }
    if (text[index] == '%' && text.size() - index > 2) {
      const int high = hex_digit_value(text[index + 1]);
      const int low = hex_digit_value(text[index + 2]);
      if (high >= 0 && low >= 0) {
        out += static_cast<char>(high * 16 + low);
        index += 2;
        continue;
      }
    }
    out += text[index];
  }
  return out;
}

}  // namespace velmora
