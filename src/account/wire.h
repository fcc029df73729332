// The text of the account service's requests and replies. Pure. There is no JSON tree: values are put between
// fixed text, and picked out of a reply by the first place where their key stands, at any depth, also inside
// another string. The readers take nearly anything and never fail hard; they are not those of the API's own
// bodies (json/find.h), which are stricter, and clients of either rely on the difference.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace velmora {

// `text` with a backslash before each double quote and each backslash, and no other change: control bytes
// pass.
[[nodiscard]] std::string account_json_escape(std::string_view text);

// The string behind `key`. A text that is not closed goes to the end. Escapes are undone; \u takes four bytes
// of which at least the first is a hexadecimal digit, as one UTF-16 unit, so that a surrogate becomes U+FFFD.
// No value: no key, no colon behind it, null, or anything but a string, one behind a tab included.
[[nodiscard]] std::optional<std::string> account_json_string(std::string_view text, std::string_view key);

// The decimal digits behind `key`. No value: anything that begins with no digit, and what does not fit into
// 32 bits.
[[nodiscard]] std::optional<std::uint32_t> account_json_uint(std::string_view text, std::string_view key);

struct WireField {
  std::string_view key;
  std::string_view value;
};
// One flat object of string values, without blanks: the values are escaped, the keys stand as they are.
[[nodiscard]] std::string account_body(std::initializer_list<WireField> fields);

}  // namespace velmora
