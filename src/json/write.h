// Writing JSON answers: values appended to the text that is being built, without blanks. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
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

// Appends an object member by member, in the order in which they are added, and the closing brace with `end`.
// A key is written as it stands. Numbers that are floats get `significant_digits`.
class JsonObject {
 public:
  explicit JsonObject(std::string& out, int significant_digits = default_digits)
      : out_(out), digits_(significant_digits) {
    out_ += '{';
  }
  void end() { out_ += '}'; }

  void add(std::string_view key, std::string_view text) { append_text(begin(key), text); }
  void add(std::string_view key, const std::vector<std::string>& texts) { append_texts(begin(key), texts); }
  // Exactly these types: what converts to bool by itself, a text for one, is not taken for one.
  template <typename Value>
  requires std::is_arithmetic_v<Value>
  void add(std::string_view key, Value value) {
    if constexpr (std::is_same_v<Value, bool>) {
      append_bool(begin(key), value);
    } else if constexpr (std::is_floating_point_v<Value>) {
      append_number(begin(key), value, digits_);
    } else if constexpr (std::is_signed_v<Value>) {
      append_integer(begin(key), value);
    } else {
      append_unsigned(begin(key), value);
    }
  }
  // Begins a member: the caller appends its value to the text that it gets.
  std::string& begin(std::string_view key) {
    if (out_.back() != '{') out_ += ',';
    out_ += '"';
    out_ += key;
    out_ += "\":";
    return out_;
  }

 private:
  std::string& out_;
  int digits_;
};

}  // namespace velmora
