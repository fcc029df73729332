#include "json/escape.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

TEST(JsonEscape, EscapesEachByte) {
  const struct {
    int value;
    std::string_view escaped;
  } short_forms[] = {{'"', "\\\""}, {'\\', "\\\\"}, {8, "\\b"}, {9, "\\t"},
                     {10, "\\n"},   {12, "\\f"},    {13, "\\r"}};
  for (int value = 0; value < 256; ++value) {
    const char byte = static_cast<char>(value);
    std::string expected(1, byte);
    if (value < 0x20) {
      expected = "\\u00";
      expected += value < 0x10 ? '0' : '1';
      expected += "0123456789abcdef"[value % 16];
    }
    for (const auto& row : short_forms) {
      if (row.value == value) expected = row.escaped;
    }
    EXPECT_EQ(json_escape({&byte, 1}), expected) << value;
  }
}

TEST(JsonEscape, EscapesTexts) {
  EXPECT_EQ(json_escape(""), "");
  EXPECT_EQ(json_escape("a\n\"b\\c"), "a\\n\\\"b\\\\c");
  EXPECT_EQ(json_escape("\x1F"), "\\u001f");
  EXPECT_EQ(json_escape("a/b\x7F\xC3\xA9\xFF"), "a/b\x7F\xC3\xA9\xFF");
}

}  // namespace
}  // namespace velmora
