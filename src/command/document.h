// JSON documents of the service, as trees. Pure.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmora {

struct JsonNode {
  enum class Kind { null, boolean, number, text, list, object };
  Kind kind = Kind::null;
  // A number as it was written, a text without its escapes, or "true" or "false".
  std::string text;
  std::vector<std::string> names;  // of the members of an object, in their order
  std::vector<JsonNode> nodes;     // its values, or the items of a list
};

// Reads a whole document (RFC 8259). It also accepts the numbers nan, inf and -inf, which the service writes.
// No value if anything else is wrong, or if it is nested more than 32 deep or has more than 100,000 nodes.
[[nodiscard]] std::optional<JsonNode> read_document(std::string_view text);

// Appends the document without white space. Numbers that JSON does not have become texts.
void append_document(std::string& out, const JsonNode& node);

// Follows member names from the root. Null if one is missing.
[[nodiscard]] const JsonNode* find_node(const JsonNode& root, std::initializer_list<std::string_view> path);

// The value of a member, or no value if it is missing or of another type. A number may be infinite or NaN.
[[nodiscard]] std::optional<bool> flag_at(const JsonNode& root, std::initializer_list<std::string_view> path);
[[nodiscard]] std::optional<double> number_at(const JsonNode& root,
                                              std::initializer_list<std::string_view> path);
[[nodiscard]] std::optional<std::string> text_at(const JsonNode& root,
                                                 std::initializer_list<std::string_view> path);

}  // namespace velmora
