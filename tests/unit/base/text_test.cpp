#include "base/text.h"

#include <gtest/gtest.h>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using namespace std::string_literals;

struct Pair {
  std::string utf8;
  std::u16string wide;
};

const Pair well_formed[] = {
    {"", u""},
    {"plain", u"plain"},
    {"\0\x01"s, u"\0\x01"s},
    {"\x7F", u"\x7F"},
    {"\xC2\x80", u"\x80"},
    {"\xDF\xBF", u"\x7FF"},
    {"\xE0\xA0\x80", u"\x800"},
    {"\xED\x9F\xBF", u"\xD7FF"},
    {"\xEE\x80\x80", u"\xE000"},
    {"\xEF\xBF\xBF", u"\xFFFF"},
    {"\xF0\x90\x80\x80", u"\xD800\xDC00"},
    {"\xF4\x8F\xBF\xBF", u"\xDBFF\xDFFF"},
};

// Each ill-formed stretch and what replaces it: one U+FFFD for each maximal subpart.
const Pair ill_formed[] = {
    {"\x80", u"\xFFFD"},
    {"\xBF\xBF", u"\xFFFD\xFFFD"},
    {"\xC0\x80", u"\xFFFD\xFFFD"},
    {"\xC1\xBF", u"\xFFFD\xFFFD"},
    {"\xC2", u"\xFFFD"},
    {"\xC2g", u"\xFFFDg"},
    {"\xE0\x80\x80", u"\xFFFD\xFFFD\xFFFD"},
    {"\xE0\x9F\xBF", u"\xFFFD\xFFFD\xFFFD"},
    {"\xE2\x82", u"\xFFFD"},
    {"\xE2\x82g", u"\xFFFDg"},
    {"\xE2g", u"\xFFFDg"},
    {"\xED\xA0\x80", u"\xFFFD\xFFFD\xFFFD"},
    {"\xED\xBF\xBF", u"\xFFFD\xFFFD\xFFFD"},
    {"\xF0\x8F\xBF\xBF", u"\xFFFD\xFFFD\xFFFD\xFFFD"},
    {"\xF0\x9F\x98", u"\xFFFD"},
    {"\xF0\x9F\x98g", u"\xFFFDg"},
    {"\xF0\x9F\xC2\x80", u"\xFFFD\x80"},
    {"\xF4\x90\x80\x80", u"\xFFFD\xFFFD\xFFFD\xFFFD"},
    {"\xF5\x80\x80\x80", u"\xFFFD\xFFFD\xFFFD\xFFFD"},
    {"\xFF\xFE", u"\xFFFD\xFFFD"},
    {"\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
     u"\x61\xFFFD\xFFFD\xFFFD\x62\xFFFD\x63\xFFFD\xFFFD\x64"},
};

TEST(Text, WidensWellFormedUtf8InBothModes) {
  for (const Pair& row : well_formed) {
    SCOPED_TRACE(::testing::PrintToString(row.utf8));
    const ExactBlock block(row.utf8);
    EXPECT_EQ(wide_from_utf8_replacing(block.view()), row.wide);
    EXPECT_EQ(wide_from_utf8_strict(block.view()), row.wide);
    EXPECT_EQ(utf8_from_wide_replacing(row.wide), row.utf8);
  }
}

TEST(Text, ReplacesEachMaximalSubpartOnceOrRefusesTheText) {
  for (const Pair& row : ill_formed) {
    SCOPED_TRACE(::testing::PrintToString(row.utf8));
    const ExactBlock block(row.utf8);
    EXPECT_EQ(wide_from_utf8_replacing(block.view()), row.wide);
    EXPECT_FALSE(wide_from_utf8_strict(block.view()));
  }
}

TEST(Text, CarriesEveryUnicodeScalarThereAndBack) {
  for (char32_t scalar = 0; scalar < 0x110000; ++scalar) {
    if (scalar >= 0xD800 && scalar < 0xE000) continue;
    std::u16string wide;
    if (scalar < 0x10000) {
      wide.push_back(static_cast<char16_t>(scalar));
    } else {
      wide.push_back(static_cast<char16_t>(0xD7C0 + (scalar >> 10)));
      wide.push_back(static_cast<char16_t>(0xDC00 + (scalar & 0x3FF)));
    }
    const std::string utf8 = utf8_from_wide_replacing(wide);
    ASSERT_EQ(wide_from_utf8_strict(utf8), wide) << static_cast<std::uint32_t>(scalar);
  }
}

TEST(Text, ReplacesUnpairedSurrogates) {
  const struct {
    std::u16string wide;
    std::string utf8;
  } rows[] = {
      {u"\xD800", "\xEF\xBF\xBD"},
      {u"\xDC00", "\xEF\xBF\xBD"},
      {u"\xDBFFg", "\xEF\xBF\xBDg"},
      {u"\xDC00\xD800", "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {u"\xD800\xD800\xDC00", "\xEF\xBF\xBD\xF0\x90\x80\x80"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.utf8));
    EXPECT_EQ(utf8_from_wide_replacing(row.wide), row.utf8);
  }
}

TEST(Text, LooksAtNoByteBehindAnyPrefix) {
  const std::string whole = "a\xC2\x80\xE2\x82\xAC\xF0\x9F\x98\x80z";
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    const ExactBlock block(std::string_view(whole).substr(0, length));
    const bool ends_between_characters =
        length == whole.size() || (static_cast<unsigned char>(whole[length]) & 0xC0) != 0x80;
    EXPECT_EQ(wide_from_utf8_strict(block.view()).has_value(), ends_between_characters) << length;
    EXPECT_EQ(wide_from_utf8_replacing(block.view()).find(u'\xFFFD') == std::u16string::npos,
              ends_between_characters)
        << length;
  }
}

TEST(Text, ExtendsTheSignOfEachByteThatItWidens) {
  for (int value = 0; value < 256; ++value) {
    const char byte = static_cast<char>(value);
    const auto expected = static_cast<char16_t>(value < 0x80 ? value : 0xFF00 + value);
    EXPECT_EQ(wide_from_signed_bytes({&byte, 1}), std::u16string(1, expected)) << value;
  }
  EXPECT_EQ(wide_from_signed_bytes("Local\\x"), u"Local\\x");
  EXPECT_EQ(wide_from_signed_bytes("\xC3\xA9"), u"\xFFC3\xFFA9");
  EXPECT_EQ(wide_from_signed_bytes(""), u"");
}

TEST(Text, NarrowsEachWideCharacterByItself) {
  for (char32_t value = 0; value < 0x10000; ++value) {
    const auto unit = static_cast<char16_t>(value);
    const std::string expected(1, value < 128 ? static_cast<char>(value) : '?');
    ASSERT_EQ(ascii_from_wide({&unit, 1}), expected) << static_cast<std::uint32_t>(value);
  }
  EXPECT_EQ(ascii_from_wide(u""), "");
  EXPECT_EQ(ascii_from_wide(u"a\x7F\x80\xE9z"), "a\x7F??z");
  EXPECT_EQ(ascii_from_wide(u"\xD83D\xDE00"), "??");
  EXPECT_EQ(ascii_from_wide({u"a\0b", 3}), "a\0b"s);
}

TEST(Text, WidensEachByteWithoutItsSign) {
  for (int value = 0; value < 256; ++value) {
    const char byte = static_cast<char>(value);
    EXPECT_EQ(wide_from_ascii({&byte, 1}), std::u16string(1, static_cast<char16_t>(value))) << value;
  }
  EXPECT_EQ(wide_from_ascii(""), u"");
  EXPECT_EQ(wide_from_ascii("\xC3\xA9"), u"\xC3\xA9");
  EXPECT_EQ(wide_from_ascii({"a\0b", 3}), std::u16string({u'a', u'\0', u'b'}));
}

TEST(Text, ComesBackFromWideTextAsItWasWhereItIsAscii) {
  std::string ascii;
  for (char byte = 0; byte < 127; ++byte) ascii.push_back(byte);
  EXPECT_EQ(ascii_from_wide(wide_from_ascii(ascii)), ascii);
  EXPECT_EQ(ascii_from_wide(wide_from_ascii("a\xE9z")), "a?z");
}

}  // namespace
}  // namespace velmora
