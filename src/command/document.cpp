#include "command/document.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

#include "base/hex.h"
#include "base/text.h"
#include "json/write.h"

namespace velmora {
namespace {

constexpr int most_levels = 32;
constexpr std::size_t most_nodes = 100'000;

// Removes digits from the front. Returns how many there were.
std::size_t take_digits(std::string_view& text) {
  const std::size_t count = std::min(text.find_first_not_of("0123456789"), text.size());
  text.remove_prefix(count);
  return count;
}

bool take_one(std::string_view& text, std::string_view bytes) {
  if (text.empty() || bytes.find(text.front()) == std::string_view::npos) return false;
  text.remove_prefix(1);
  return true;
}

// A number as RFC 8259 writes it.
bool is_plain_number(std::string_view text) {
  take_one(text, "-");
  const bool begins_with_zero = text.starts_with('0');
  const std::size_t whole = take_digits(text);
  if (whole == 0 || (begins_with_zero && whole > 1)) return false;
  if (take_one(text, ".") && take_digits(text) == 0) return false;
  if (take_one(text, "eE")) {
    take_one(text, "+-");
    if (take_digits(text) == 0) return false;
  }
  return text.empty();
}

// A number that the service writes and JSON does not have.
bool is_odd_number(std::string_view text) { return text == "nan" || text == "inf" || text == "-inf"; }

double number_of(std::string_view text) {
  double value = 0;
  // A number out of range gives 0, and nobody needs its value.
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

// Reads from the front of a text. A function that fails returns false, and the rest is then meaningless.
class DocumentReader {
 public:
  explicit DocumentReader(std::string_view text) : rest_(text) {}

  bool read_all(JsonNode& out) {
    if (!read_node(out, 0)) return false;
    skip_blanks();
    return rest_.empty();
  }

 private:
  void skip_blanks() {
    const std::size_t count = rest_.find_first_not_of(" \t\r\n");
    rest_.remove_prefix(count == std::string_view::npos ? rest_.size() : count);
  }

  // Skips blanks, then the byte if it comes next.
  bool take(char byte) {
    skip_blanks();
    if (!rest_.starts_with(byte)) return false;
    rest_.remove_prefix(1);
    return true;
  }

  bool read_node(JsonNode& out, int level) {
    if (level > most_levels || ++nodes_ > most_nodes) return false;
    skip_blanks();
    if (rest_.empty()) return false;
    switch (rest_.front()) {
      case '{': return read_object(out, level);
      case '[': return read_list(out, level);
      case '"': out.kind = JsonNode::Kind::text; return read_text(out.text);
      default: return read_word(out);
    }
  }

  bool read_object(JsonNode& out, int level) {
    out.kind = JsonNode::Kind::object;
    if (!take('{')) return false;
    if (take('}')) return true;
    do {
      skip_blanks();
      std::string name;
      if (!rest_.starts_with('"') || !read_text(name) || !take(':')) return false;
      out.names.push_back(std::move(name));
      out.nodes.emplace_back();
      if (!read_node(out.nodes.back(), level + 1)) return false;
    } while (take(','));
    return take('}');
  }

  bool read_list(JsonNode& out, int level) {
    out.kind = JsonNode::Kind::list;
    if (!take('[')) return false;
    if (take(']')) return true;
    do {
      out.nodes.emplace_back();
      if (!read_node(out.nodes.back(), level + 1)) return false;
    } while (take(','));
    return take(']');
  }

  // true, false, null, or a number.
  bool read_word(JsonNode& out) {
    const std::size_t length = std::min(rest_.find_first_of(" \t\r\n,]}"), rest_.size());
    out.text = rest_.substr(0, length);
    rest_.remove_prefix(length);
    if (out.text == "null") return true;
    const bool is_flag = out.text == "true" || out.text == "false";
    out.kind = is_flag ? JsonNode::Kind::boolean : JsonNode::Kind::number;
    return is_flag || is_plain_number(out.text) || is_odd_number(out.text);
  }

  bool read_text(std::string& out) {
    rest_.remove_prefix(1);
    while (!rest_.empty()) {
      const char byte = rest_.front();
      rest_.remove_prefix(1);
      if (byte == '"') return true;
      if (static_cast<unsigned char>(byte) < 0x20) return false;
      if (byte != '\\') {
        out += byte;
      } else if (!read_escape(out)) {
        return false;
      }
    }
    return false;
  }

  bool read_escape(std::string& out) {
    constexpr std::string_view letters = "\"\\/bfnrt";
    constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
    if (rest_.empty()) return false;
    const char letter = rest_.front();
    rest_.remove_prefix(1);
    if (letter == 'u') return read_units(out);
    const std::size_t place = letters.find(letter);
    if (place == std::string_view::npos) return false;
    out += meanings[place];
    return true;
  }

  // The digits of one or more \u escapes, which may be two halves of one character.
  bool read_units(std::string& out) {
    std::u16string units;
    do {
      unsigned unit = 0;
      for (int digit = 0; digit < 4; ++digit) {
        const int value = rest_.empty() ? -1 : hex_digit_value(rest_.front());
        if (value < 0) return false;
        unit = unit * 16 + static_cast<unsigned>(value);
        rest_.remove_prefix(1);
      }
      units += static_cast<char16_t>(unit);
      if (!rest_.starts_with("\\u")) break;
      rest_.remove_prefix(2);
    } while (true);
    out += utf8_from_wide_replacing(units);
    return true;
  }

  std::string_view rest_;
  std::size_t nodes_ = 0;
};

void append_value(std::string& out, const JsonNode& node) {
  const bool is_odd = node.kind == JsonNode::Kind::number && is_odd_number(node.text);
  if (is_odd || node.kind == JsonNode::Kind::text) return append_text(out, node.text);
  out += node.text;
}

}  // namespace

std::optional<JsonNode> read_document(std::string_view text) {
  JsonNode root;
  if (!DocumentReader(text).read_all(root)) return std::nullopt;
  return root;
}

void append_document(std::string& out, const JsonNode& node) {
  const bool is_object = node.kind == JsonNode::Kind::object;
  if (!is_object && node.kind != JsonNode::Kind::list) return append_value(out, node);
  out += is_object ? '{' : '[';
  for (std::size_t index = 0; index < node.nodes.size(); ++index) {
    if (index > 0) out += ',';
    if (is_object) {
      append_text(out, node.names[index]);
      out += ':';
    }
    append_document(out, node.nodes[index]);
  }
  out += is_object ? '}' : ']';
}

const JsonNode* find_node(const JsonNode& root, std::initializer_list<std::string_view> path) {
  const JsonNode* node = &root;
  for (const std::string_view name : path) {
    const JsonNode* found = nullptr;
    for (std::size_t index = 0; index < node->names.size() && found == nullptr; ++index) {
      if (node->names[index] == name) found = &node->nodes[index];
    }
    if (found == nullptr) return nullptr;
    node = found;
  }
  return node;
}

std::optional<bool> flag_at(const JsonNode& root, std::initializer_list<std::string_view> path) {
  const JsonNode* const node = find_node(root, path);
  if (node == nullptr || node->kind != JsonNode::Kind::boolean) return std::nullopt;
  return node->text == "true";
}

std::optional<double> number_at(const JsonNode& root, std::initializer_list<std::string_view> path) {
  const JsonNode* const node = find_node(root, path);
  if (node == nullptr || node->kind != JsonNode::Kind::number) return std::nullopt;
  return number_of(node->text);
}

std::optional<std::string> text_at(const JsonNode& root, std::initializer_list<std::string_view> path) {
  const JsonNode* const node = find_node(root, path);
  if (node == nullptr || node->kind != JsonNode::Kind::text) return std::nullopt;
  return node->text;
}

}  // namespace velmora
