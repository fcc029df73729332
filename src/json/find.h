// Finding fields in JSON request bodies by text search. Pure.
//
// There is no JSON tree, and a real parser must not take its place: clients rely on what these accept. A key
// is the first textual match of its quoted name, at any depth or inside a string; whatever stands between it
// and the next colon is skipped; what follows a value is not looked at; a later duplicate is never seen, even
// when the first match has a bad value. A missing key and a bad value are both "no value".
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velmora {

// The value begins with "true" or "false".
[[nodiscard]] std::optional<bool> json_find_bool(std::string_view body, std::string_view key);

// What `strtof` reads in the C locale, if finite: a leading sign, a missing leading digit, exponents and
// hexadecimal forms pass, and letters behind the number are ignored. The process's locale has no effect: a
// library that we load may change it.
[[nodiscard]] std::optional<float> json_find_number(std::string_view body, std::string_view key);

// A quoted string with the two-character escapes undone. `\u` and raw bytes below 0x20 are no value; UTF-8
// is not checked.
[[nodiscard]] std::optional<std::string> json_find_string(std::string_view body, std::string_view key);

// What stands between the next "[" behind the key and the bracket that balances it. Both bracket kinds are
// counted together, and brackets inside strings count too. The view is into `body`.
[[nodiscard]] std::optional<std::string_view> json_find_array(std::string_view body, std::string_view key);

}  // namespace velmora
