#include "http/text.h"

#include <cstddef>

#include "base/text.h"

namespace velmora {
namespace {

constexpr std::string_view lower_hex_digits = "0123456789abcdef";

int hex_value(char byte) {
  if (byte >= '0' && byte <= '9') return byte - '0';
  if (byte >= 'a' && byte <= 'f') return byte - 'a' + 10;
  if (byte >= 'A' && byte <= 'F') return byte - 'A' + 10;
  return -1;
}

void append_json_escaped(std::string& out, char byte) {
  const auto value = static_cast<unsigned char>(byte);
  switch (byte) {
    case '"': out += "\\\""; return;
    case '\\': out += "\\\\"; return;
    case '\b': out += "\\b"; return;
    case '\t': out += "\\t"; return;
    case '\n': out += "\\n"; return;
    case '\f': out += "\\f"; return;
    case '\r': out += "\\r"; return;
    default: break;
  }
  if (value >= 0x20) {
    out += byte;
    return;
  }
  out += "\\u00";
  out += lower_hex_digits[value >> 4];
  out += lower_hex_digits[value & 0xF];
}

}  // namespace

std::string_view trim(std::string_view text) {
  while (!text.empty() && is_space(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_space(text.back())) text.remove_suffix(1);
  return text;
}

std::string trim_copy(std::string_view text) { return std::string(trim(text)); }

std::string to_lower_copy(std::string_view text) {
  std::string out(text);
  for (char& byte : out) {
    if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(byte - 'A' + 'a');
  }
  return out;
}

std::string json_escape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  append_escaped(out, text);
  return out;
}

void append_escaped(std::string& out, std::string_view text) {
  for (const char byte : text) append_json_escaped(out, byte);
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
      const int high = hex_value(text[index + 1]);
      const int low = hex_value(text[index + 2]);
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

std::string utf8_to_path(std::string_view text) {
  return utf8_from_wide_replacing(wide_from_utf8_replacing(text));
}

}  // namespace velmora
