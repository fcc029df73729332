#include "base/ascii.h"

#include <gtest/gtest.h>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using namespace std::string_literals;

TEST(Ascii, CountsSixBytesAsWhiteSpaceAndNoOther) {
  const std::string_view white = " \t\n\v\f\r";
  for (int value = 0; value < 256; ++value) {
    const char byte = static_cast<char>(value);
    EXPECT_EQ(is_space(byte), white.find(byte) != std::string_view::npos) << value;
  }
}

TEST(Ascii, TrimsWhiteSpaceAtBothEndsAlone) {
  const struct {
    std::string text;
    std::string trimmed;
  } rows[] = {
      {"", ""},
      {" ", ""},
      {"a", "a"},
      {" \t\n\v\f\ra b\r\f\v\n\t ", "a b"},
      {"\0a\0"s, "\0a\0"s},
      {"\xA0 a\x85", "\xA0 a\x85"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.text));
    const ExactBlock block(row.text);
    EXPECT_EQ(trim_copy(block.view()), row.trimmed);
  }
}

TEST(Ascii, LowersTheAsciiLettersAndNoOtherByte) {
  for (int value = 0; value < 256; ++value) {
    const char byte = static_cast<char>(value);
    const char expected = value >= 'A' && value <= 'Z' ? static_cast<char>(value + 32) : byte;
    EXPECT_EQ(to_lower_copy({&byte, 1}), std::string(1, expected)) << value;
  }
}

TEST(Ascii, DecodesPercentFormsAndPlus) {
  const struct {
    std::string text;
    std::string decoded;
  } rows[] = {
      {"", ""},        {"a%20b+c", "a b c"}, {"100%", "100%"},       {"%zz", "%zz"},   {"%4", "%4"},
      {"a%4", "a%4"},  {"%", "%"},           {"%%41", "%A"},         {"%41", "A"},     {"%4a%4A", "JJ"},
      {"%00"s, "\0"s}, {"%fF", "\xFF"},      {"%+1", "% 1"},         {"%-1", "%-1"},   {"% 1", "% 1"},
      {"%0x", "%0x"},  {"%x0", "%x0"},       {"%2", "%2"},           {"%2520", "%20"}, {"+/+", " / "},
      {"%4g", "%4g"},  {"%g4", "%g4"},       {"%C3%A9", "\xC3\xA9"}, {"a%2Bb", "a+b"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    const ExactBlock block(row.text);
    EXPECT_EQ(url_decode(block.view()), row.decoded);
  }
}

TEST(Ascii, DecodesEveryByteFromBothCasesOfItsDigits) {
  for (int value = 0; value < 256; ++value) {
    for (const std::string_view digits : {"0123456789abcdef", "0123456789ABCDEF"}) {
      const std::string text = {'%', digits[static_cast<std::size_t>(value / 16)],
                                digits[static_cast<std::size_t>(value % 16)]};
      EXPECT_EQ(url_decode(text), std::string(1, static_cast<char>(value))) << text;
    }
  }
}

TEST(Ascii, DecodesEveryPrefixWithoutLookingBehindIt) {
  const std::string whole = "a%20b%4";
  const std::string_view decoded[] = {"", "a", "a%", "a%2", "a ", "a b", "a b%", "a b%4"};
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    const ExactBlock block(std::string_view(whole).substr(0, length));
    EXPECT_EQ(url_decode(block.view()), decoded[length]);
  }
}

}  // namespace
}  // namespace velmora
