#include "json/find.h"

#include <cmath>
#include <cstddef>

#include "base/ascii.h"
#include "base/number.h"

namespace velmora {
namespace {

// Returns the body after the colon that follows the key in quotes.
std::optional<std::string_view> find_value(std::string_view body, std::string_view key) {
  for (std::size_t found = body.find(key, 1); found != std::string_view::npos;
       found = body.find(key, found + 1)) {
    const std::size_t behind = found + key.size();
    if (body[found - 1] != '"' || behind == body.size() || body[behind] != '"') continue;
    const std::size_t colon = body.find(':', behind + 1);
    if (colon == std::string_view::npos) return std::nullopt;
    return body.substr(colon + 1);
  }
  return std::nullopt;
}

// As find_value, but skips white space before the value.
std::optional<std::string_view> find_trimmed_value(std::string_view body, std::string_view key) {
  std::optional<std::string_view> value = find_value(body, key);
  while (value && !value->empty() && is_space(value->front())) value->remove_prefix(1);
  return value;
}

// Returns the byte for the escape of a backslash and `letter`.
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
  const std::optional<float> number = read_float(*value);
  return number && std::isfinite(*number) ? number : std::nullopt;
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
