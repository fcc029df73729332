// Writing JSON answers: values appended to the text that is being built, without blanks. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velmora {

void append_bool(std::string& out, bool value);
void append_integer(std::string& out, std::int64_t value);
void append_unsigned(std::string& out, std::uint64_t value);

// How many digits of a number are written, as by a stream of the standard library in its general format: its
// default, and what the status document asks for.
inline constexpr int default_digits = 6;
inline constexpr int status_digits = 7;

// The number as printf's %g writes it. What is no finite number goes out as inf, -inf and, whatever its sign,
// nan.
void append_number(std::string& out, float value, int significant_digits = default_digits);

// A string between double quotes, escaped as by json_escape.
void append_text(std::string& out, std::string_view text);

// An array of strings.
void append_texts(std::string& out, const std::vector<std::string>& texts);

}  // namespace velmora
