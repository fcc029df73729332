#include "base/hex.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace velmora {
namespace {

TEST(Hex, KnowsTheValueOfEachDigit) {
  constexpr std::string_view digits = "0123456789abcdefABCDEF";
  for (int value = 0; value < 0x10000; ++value) {
    SCOPED_TRACE(value);
    const std::size_t place =
        value == 0 || value > 0x7F ? std::string_view::npos : digits.find(static_cast<char>(value));
    const int expected =
        place == std::string_view::npos ? -1 : static_cast<int>(place < 16 ? place : place - 6);
    EXPECT_EQ(hex_digit_value(static_cast<char16_t>(value)), expected);
    if (value < 0x100) {
      EXPECT_EQ(hex_digit_value(static_cast<char>(value)), expected);
    }
  }
}

TEST(Hex, AppendsTwoDigitsForEachByte) {
  for (unsigned value = 0; value < 0x100; ++value) {
    char expected[8];
    std::snprintf(expected, sizeof expected, "-%02x", value);
    std::string text = "-";
    append_hex(text, static_cast<unsigned char>(value));
    EXPECT_EQ(text, expected);
  }
}

}  // namespace
}  // namespace velmora
