// Writes JSON without white space, appending to a string. Pure.
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

// Significant digits of numbers: the default of standard streams, and that of the status document.
inline constexpr int default_digits = 6;
inline constexpr int status_digits = 7;

// Writes the number like printf's %g. Infinities are written as inf and -inf, and NaN of either sign as nan.
void append_number(std::string& out, float value, int significant_digits = default_digits);

// Writes a quoted string, escaped as by json_escape.
void append_text(std::string& out, std::string_view text);

// Writes an array of strings.
void append_texts(std::string& out, const std::vector<std::string>& texts);

// Writes an object member by member, in the order of the calls. Call end() to write the closing brace. Keys
// are not escaped. Floats get `significant_digits`.
class JsonObject {
 public:
  explicit JsonObject(std::string& out, int significant_digits = default_digits)
      : out_(out), digits_(significant_digits) {
    out_ += '{';
  }
  void end() { out_ += '}'; }

  void add(std::string_view key, std::string_view text) { append_text(begin(key), text); }
  void add(std::string_view key, const std::vector<std::string>& texts) { append_texts(begin(key), texts); }
  // Arithmetic types only. Otherwise a pointer to text would convert to bool.
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
  // Starts a member and returns the output, to which the caller appends the value.
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
