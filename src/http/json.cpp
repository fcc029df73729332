#include "http/json.h"

#include <cmath>
#include <cstddef>
#include <cstdlib>

#include "http/text.h"

namespace velmora {
namespace {

// The body behind the colon that follows the key.
std::optional<std::string_view> find_value(std::string_view body, std::string_view key) {
  const std::string needle = '"' + std::string(key) + '"';
  const std::size_t match = body.find(needle);
  if (match == std::string_view::npos) return std::nullopt;
  const std::size_t colon = body.find(':', match + needle.size());
  if (colon == std::string_view::npos) return std::nullopt;
  return body.substr(colon + 1);
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
  const std::string terminated(value->substr(0, value->find_first_of(",}] \t\n\v\f\r")));
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
