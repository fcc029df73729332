// Finds fields in JSON request bodies by text search. Pure.
//
// Do not replace this with a JSON parser: clients rely on what these functions accept. A key matches at the
// first occurrence of its quoted name, at any depth, even inside a string. Text between the key and the next
// colon is skipped, and text after the value is ignored. Later duplicates are never used, even if the first
// match has a bad value. A missing key and a bad value both give no value.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velmora {

// Accepts a value that starts with "true" or "false".
[[nodiscard]] std::optional<bool> json_find_bool(std::string_view body, std::string_view key);

// Reads a number as strtof does in the C locale, if it is finite. It accepts a leading sign, a missing
// leading digit, exponents and hexadecimal, and ignores trailing letters. Independent of the process's
// locale, which a library that we load may change.
[[nodiscard]] std::optional<float> json_find_number(std::string_view body, std::string_view key);

// Reads a quoted string and resolves the two-character escapes. `\u` and raw bytes below 0x20 give no value.
// UTF-8 is not validated.
[[nodiscard]] std::optional<std::string> json_find_string(std::string_view body, std::string_view key);

// Returns the text between the next "[" after the key and its closing bracket. Square brackets and braces
// share one depth count, and those inside strings count too. The view points into `body`.
[[nodiscard]] std::optional<std::string_view> json_find_array(std::string_view body, std::string_view key);

}  // namespace velmora
