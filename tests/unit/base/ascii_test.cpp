#include "base/ascii.h"

#include <gtest/gtest.h>

#include <string>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using namespace std::string_literals;

constexpr std::string_view lower_letters = "abcdefghijklmnopqrstuvwxyz";
constexpr std::string_view upper_letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";

TEST(Ascii, ChangesTheCaseOfLetterBytesOnly) {
  for (int value = 0; value < 256; ++value) {
    SCOPED_TRACE(value);
    const char byte = static_cast<char>(value);
    const std::size_t lower = lower_letters.find(byte);
    const std::size_t upper = upper_letters.find(byte);
    EXPECT_EQ(ascii_lower(byte), upper == std::string_view::npos ? byte : lower_letters[upper]);
    EXPECT_EQ(ascii_upper(byte), lower == std::string_view::npos ? byte : upper_letters[lower]);
    EXPECT_EQ(is_ascii_letter(byte), lower != upper);
  }
}

TEST(Ascii, ChangesTheCaseOfLetterUnitsOnly) {
  for (int value = 0; value < 0x10000; ++value) {
    SCOPED_TRACE(value);
    const char16_t unit = static_cast<char16_t>(value);
    const char byte = value < 0x80 ? static_cast<char>(value) : '\0';
    EXPECT_EQ(ascii_lower(unit), byte == '\0' ? unit : static_cast<char16_t>(ascii_lower(byte)));
    EXPECT_EQ(ascii_upper(unit), byte == '\0' ? unit : static_cast<char16_t>(ascii_upper(byte)));
    EXPECT_EQ(is_ascii_letter(unit), is_ascii_letter(byte));
  }
}

TEST(Ascii, ComparesTextsIgnoringCase) {
  EXPECT_TRUE(equal_ignoring_case("", ""));
  EXPECT_TRUE(equal_ignoring_case("AudioDG.exe_1", "audiodg.EXE_1"));
  EXPECT_FALSE(equal_ignoring_case("a", ""));
  EXPECT_FALSE(equal_ignoring_case("", "a"));
  EXPECT_FALSE(equal_ignoring_case("ab", "abc"));
  EXPECT_FALSE(equal_ignoring_case("[", "{"));
  EXPECT_FALSE(equal_ignoring_case("@", "`"));
  EXPECT_FALSE(equal_ignoring_case("\xC3\x84", "\xC3\xA4"));
  EXPECT_TRUE(equal_ignoring_case(u"AudioDG.exe_1", u"audiodg.EXE_1"));
  EXPECT_FALSE(equal_ignoring_case(u"ab", u"abc"));
  EXPECT_FALSE(equal_ignoring_case(u"[", u"{"));
  EXPECT_FALSE(equal_ignoring_case(u"\u00C4", u"\u00E4"));
}

TEST(Ascii, TreatsSixBytesAsWhiteSpace) {
  const std::string_view white = " \t\n\v\f\r";
  for (int value = 0; value < 256; ++value) {
    const char byte = static_cast<char>(value);
    EXPECT_EQ(is_space(byte), white.find(byte) != std::string_view::npos) << value;
  }
}

TEST(Ascii, TrimsWhiteSpaceAtBothEnds) {
  const std::pair<std::string, std::string> rows[] = {
      {"", ""},
      {" ", ""},
      {"a", "a"},
      {" \t\n\v\f\ra b\r\f\v\n\t ", "a b"},
      {"\0a\0"s, "\0a\0"s},
      {"\xA0 a\x85", "\xA0 a\x85"},
  };
  for (const auto& [text, trimmed] : rows) {
    SCOPED_TRACE(::testing::PrintToString(text));
    const ExactBlock block(text);
    EXPECT_EQ(trim_copy(block.view()), trimmed);
  }
}

TEST(Ascii, LowersAsciiLettersOnly) {
  for (int value = 0; value < 256; ++value) {
    const char byte = static_cast<char>(value);
    const char expected = value >= 'A' && value <= 'Z' ? static_cast<char>(value + 32) : byte;
    EXPECT_EQ(to_lower_copy({&byte, 1}), std::string(1, expected)) << value;
  }
}

TEST(Ascii, DecodesPercentFormsAndPlus) {
  const std::pair<std::string, std::string> rows[] = {
      {"", ""},        {"a%20b+c", "a b c"}, {"100%", "100%"},       {"%zz", "%zz"},   {"%4", "%4"},
      {"a%4", "a%4"},  {"%", "%"},           {"%%41", "%A"},         {"%41", "A"},     {"%4a%4A", "JJ"},
      {"%00"s, "\0"s}, {"%fF", "\xFF"},      {"%+1", "% 1"},         {"%-1", "%-1"},   {"% 1", "% 1"},
      {"%0x", "%0x"},  {"%x0", "%x0"},       {"%2", "%2"},           {"%2520", "%20"}, {"+/+", " / "},
      {"%4g", "%4g"},  {"%g4", "%g4"},       {"%C3%A9", "\xC3\xA9"}, {"a%2Bb", "a+b"},
  };
  for (const auto& [text, decoded] : rows) {
    SCOPED_TRACE(text);
    const ExactBlock block(text);
    EXPECT_EQ(url_decode(block.view()), decoded);
  }
}

TEST(Ascii, DecodesDigitsOfBothCases) {
  for (int value = 0; value < 256; ++value) {
    for (const std::string_view digits : {"0123456789abcdef", "0123456789ABCDEF"}) {
      const std::string text = {'%', digits[static_cast<std::size_t>(value / 16)],
                                digits[static_cast<std::size_t>(value % 16)]};
      EXPECT_EQ(url_decode(text), std::string(1, static_cast<char>(value))) << text;
    }
  }
}

TEST(Ascii, DecodesEveryPrefix) {
  const std::string whole = "a%20b%4";
  const std::string_view decoded[] = {"", "a", "a%", "a%2", "a ", "a b", "a b%", "a b%4"};
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    const ExactBlock block(std::string_view(whole).substr(0, length));
    EXPECT_EQ(url_decode(block.view()), decoded[length]);
  }
}

}  // namespace
}  // namespace velmora
