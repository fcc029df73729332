// The text of requests to the account service and of its replies. Pure. There is no JSON tree. Values are
// inserted into fixed text. A reader takes the first occurrence of its key, even inside another string.
//
// The readers accept nearly anything and never fail hard. Those of the API's own bodies (json/find.h) are
// stricter, and clients of either rely on the difference.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace velmora {

// Returns `text` with a backslash before each double quote and each backslash. Control bytes are unchanged.
[[nodiscard]] std::string account_json_escape(std::string_view text);

// Returns the string after `key`; an unterminated one extends to the end. Escapes are decoded. \u takes four
// bytes, of which at least the first is a hexadecimal digit, as one UTF-16 unit; a surrogate becomes U+FFFD.
// No value if the key or the colon after it is missing, or if the value is not a string. A string after a tab
// is not found either.
[[nodiscard]] std::optional<std::string> account_json_string(std::string_view text, std::string_view key);

// Returns the decimal number after `key`. No value if it does not begin with a digit or exceeds 32 bits.
[[nodiscard]] std::optional<std::uint32_t> account_json_uint(std::string_view text, std::string_view key);

struct WireField {
  std::string_view key;
  std::string_view value;
};
// Returns a flat JSON object of strings, without blanks. Values are escaped, keys are not.
[[nodiscard]] std::string account_body(std::initializer_list<WireField> fields);

}  // namespace velmora
