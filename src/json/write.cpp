#include "json/write.h"

#include <array>
#include <charconv>
#include <cmath>

#include "json/escape.h"

namespace velmora {
namespace {

template <typename Integer>
void append_decimal(std::string& out, Integer value) {
  std::array<char, 20> text;
  out.append(text.begin(), std::to_chars(text.begin(), text.end(), value).ptr);
}

}  // namespace

void append_bool(std::string& out, bool value) { out += value ? "true" : "false"; }

void append_integer(std::string& out, std::int64_t value) { append_decimal(out, value); }

void append_unsigned(std::string& out, std::uint64_t value) { append_decimal(out, value); }

void append_number(std::string& out, float value, int significant_digits) {
  if (std::isnan(value)) {
    out += "nan";
    return;
  }
  std::array<char, 24> text;
  const auto end =
      std::to_chars(text.begin(), text.end(), value, std::chars_format::general, significant_digits).ptr;
  out.append(text.begin(), end);
}

void append_text(std::string& out, std::string_view text) {
  out += '"';
  append_escaped(out, text);
  out += '"';
}

void append_texts(std::string& out, const std::vector<std::string>& texts) {
  out += '[';
  std::string_view separator;
  for (const std::string& text : texts) {
    out += separator;
    append_text(out, text);
    separator = ",";
  }
  out += ']';
}

}  // namespace velmora
