#include "account/wire.h"

#include <algorithm>
#include <charconv>

#include "base/text.h"

namespace velmora {
namespace {

// Returns the text after the colon that follows the first occurrence of the key.
std::optional<std::string_view> find_value(std::string_view text, std::string_view key) {
  std::string quoted = "\"";
  quoted.append(key).append("\"");
  const std::size_t found = text.find(quoted);
  if (found == std::string_view::npos) return std::nullopt;
  const std::size_t colon = text.find(':', found + quoted.size());
  if (colon == std::string_view::npos || colon + 1 == text.size()) return std::nullopt;
  return text.substr(colon + 1);
}

std::string_view skip(std::string_view text, std::string_view bytes) {
  return text.substr(std::min(text.find_first_not_of(bytes), text.size()));
}

// Decodes the four bytes after \u at the front of `text`. Does nothing if they are missing or do not begin
// with a hexadecimal digit.
void take_unicode_escape(std::string_view& text, std::string& out) {
  constexpr std::size_t digits = 4;
  if (text.size() < digits) return;
  std::uint16_t unit = 0;
  if (std::from_chars(text.data(), text.data() + digits, unit, 16).ec != std::errc()) return;
  out += utf8_from_wide_replacing(std::u16string(1, static_cast<char16_t>(unit)));
  text.remove_prefix(digits);
}

// Decodes the rest of an escape, after its backslash, at the front of `text`.
void take_escape(std::string_view& text, std::string& out) {
  if (text.empty()) {
    out += '\\';
    return;
  }
  const char byte = text.front();
  text.remove_prefix(1);
  switch (byte) {
    case 'n': out += '\n'; break;
    case 'r': out += '\r'; break;
    case 't': out += '\t'; break;
    case 'u': take_unicode_escape(text, out); break;
    default: out += byte; break;
  }
}

}  // namespace

std::string account_json_escape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char byte : text) {
    if (byte == '"' || byte == '\\') out += '\\';
    out += byte;
  }
  return out;
}

std::optional<std::string> account_json_string(std::string_view text, std::string_view key) {
  const auto value = find_value(text, key);
  if (!value) return std::nullopt;
  std::string_view rest = skip(*value, " \r\n");
  if (!rest.starts_with('"')) return std::nullopt;
  rest.remove_prefix(1);
  std::string out;
  while (!rest.empty() && rest.front() != '"') {
    const char byte = rest.front();
    rest.remove_prefix(1);
    if (byte == '\\') {
      take_escape(rest, out);
    } else {
      out += byte;
    }
  }
  return out;
}

std::optional<std::uint32_t> account_json_uint(std::string_view text, std::string_view key) {
  const auto value = find_value(text, key);
  if (!value) return std::nullopt;
  const std::string_view digits = skip(*value, " \t\n\r");
  std::uint32_t number = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (result.ec != std::errc()) return std::nullopt;
  return number;
}

std::string account_body(std::initializer_list<WireField> fields) {
  std::string body = "{";
  for (const WireField& field : fields) {
    if (body.size() > 1) body += ',';
    body.append("\"").append(field.key).append("\":\"");
    body.append(account_json_escape(field.value)).append("\"");
  }
  return body + '}';
}

}  // namespace velmora
