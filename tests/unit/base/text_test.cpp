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

// Ill-formed text and its replacement: one U+FFFD for each maximal subpart.
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

TEST(Text, ConvertsWellFormedText) {
  for (const Pair& row : well_formed) {
    SCOPED_TRACE(::testing::PrintToString(row.utf8));
    const ExactBlock block(row.utf8);
    EXPECT_EQ(wide_from_utf8_replacing(block.view()), row.wide);
    EXPECT_EQ(wide_from_utf8_strict(block.view()), row.wide);
    EXPECT_EQ(wide_from_utf8(block.view()), row.wide);
    EXPECT_EQ(utf8_from_wide_replacing(row.wide), row.utf8);
    EXPECT_EQ(utf8_from_wide(row.wide), row.utf8);
  }
}

TEST(Text, ReplacesEachMaximalSubpartOnce) {
  for (const Pair& row : ill_formed) {
    SCOPED_TRACE(::testing::PrintToString(row.utf8));
    const ExactBlock block(row.utf8);
    EXPECT_EQ(wide_from_utf8_replacing(block.view()), row.wide);
    EXPECT_FALSE(wide_from_utf8_strict(block.view()));
  }
}

TEST(Text, ConvertsEveryUnicodeScalarBothWays) {
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
    ASSERT_EQ(utf8_from_wide(wide), utf8) << static_cast<std::uint32_t>(scalar);
    ASSERT_EQ(wide_from_utf8(utf8), wide) << static_cast<std::uint32_t>(scalar);
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

TEST(Text, ConvertsEveryPrefix) {
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

TEST(Text, SignExtendsEachByte) {
  for (int value = 0; value < 256; ++value) {
    const char byte = static_cast<char>(value);
    const auto expected = static_cast<char16_t>(value < 0x80 ? value : 0xFF00 + value);
    EXPECT_EQ(wide_from_signed_bytes({&byte, 1}), std::u16string(1, expected)) << value;
  }
  EXPECT_EQ(wide_from_signed_bytes("Local\\x"), u"Local\\x");
  EXPECT_EQ(wide_from_signed_bytes("\xC3\xA9"), u"\xFFC3\xFFA9");
  EXPECT_EQ(wide_from_signed_bytes(""), u"");
}

TEST(Text, NarrowsEachCharacter) {
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

TEST(Text, ZeroExtendsEachByte) {
  for (int value = 0; value < 256; ++value) {
    const char byte = static_cast<char>(value);
    EXPECT_EQ(wide_from_ascii({&byte, 1}), std::u16string(1, static_cast<char16_t>(value))) << value;
  }
  EXPECT_EQ(wide_from_ascii(""), u"");
  EXPECT_EQ(wide_from_ascii("\xC3\xA9"), u"\xC3\xA9");
  EXPECT_EQ(wide_from_ascii({"a\0b", 3}), std::u16string({u'a', u'\0', u'b'}));
}

TEST(Text, IsEmptyForIllFormedUtf8) {
  for (const Pair& row : ill_formed) {
    SCOPED_TRACE(::testing::PrintToString(row.utf8));
    for (const std::string& text :
         {row.utf8, "in front" + row.utf8, row.utf8 + "behind", row.utf8 + row.utf8, "\0"s + row.utf8}) {
      const ExactBlock block(text);
      EXPECT_EQ(wide_from_utf8(block.view()), u"");
    }
  }
}

TEST(Text, IsEmptyForSurrogatesAndOverlongForms) {
  for (char32_t scalar = 0; scalar < 0x10000; ++scalar) {
    const auto piece = [&](unsigned shift, unsigned mark) {
      return static_cast<char>(mark | (static_cast<unsigned>(scalar) >> shift & 0x3Fu));
    };
    const std::string two = {static_cast<char>(0xC0 | scalar >> 6), piece(0, 0x80)};
    const std::string three = {static_cast<char>(0xE0 | scalar >> 12), piece(6, 0x80), piece(0, 0x80)};
    const std::string four = {'\xF0', piece(12, 0x80), piece(6, 0x80), piece(0, 0x80)};
    const bool surrogate = scalar >= 0xD800 && scalar < 0xE000;
    if (scalar < 0x80) {
      ASSERT_EQ(wide_from_utf8(two), u"") << static_cast<std::uint32_t>(scalar);
    }
    if (scalar < 0x800 || surrogate) {
      ASSERT_EQ(wide_from_utf8(three), u"") << static_cast<std::uint32_t>(scalar);
    }
    ASSERT_EQ(wide_from_utf8(four), u"") << static_cast<std::uint32_t>(scalar);
  }
}

TEST(Text, IsEmptyForUnpairedSurrogates) {
  const std::u16string in_context[] = {u"a\xD800",
                                       u"\xDC00z",
                                       u"a\xDBFFz",
                                       u"\xDC00\xD800",
                                       u"\xD800\xD800",
                                       u"\xDC00\xDC00",
                                       u"\xD83D\xDE00\xD83D",
                                       u"\xD83D\xDE00\xDE00",
                                       u"\xD800\xE000",
                                       u"\xD800\xD7FF",
                                       std::u16string(u"\xD800\0", 2)};
  for (const std::u16string& text : in_context)
    EXPECT_EQ(utf8_from_wide(text), "") << ::testing::PrintToString(text);
  for (char32_t unit = 0xD800; unit < 0xE000; ++unit) {
    ASSERT_EQ(utf8_from_wide(std::u16string(1, static_cast<char16_t>(unit))), "");
  }
}

TEST(Text, KeepsNulAndEveryLength) {
  EXPECT_EQ(utf8_from_wide(std::u16string(u"\0a\0", 3)), "\0a\0"s);
  EXPECT_EQ(wide_from_utf8("\0a\0"s), std::u16string(u"\0a\0", 3));
  EXPECT_EQ(utf8_from_wide(u"\xFEFFx"), "\xEF\xBB\xBFx");
  EXPECT_EQ(wide_from_utf8("\xEF\xBB\xBFx"), u"\xFEFFx");
  for (const std::size_t length : {1u, 259u, 65536u}) {
    EXPECT_EQ(utf8_from_wide(std::u16string(length, u'\xFFFD')).size(), 3 * length);
    EXPECT_EQ(wide_from_utf8(std::string(length, 'x')), std::u16string(length, u'x'));
    EXPECT_EQ(wide_from_utf8(std::string(length, 'x') + "\x80"), u"");
    EXPECT_EQ(utf8_from_wide(std::u16string(length, u'x') + u"\xD800"), "");
  }
}

TEST(Text, ConvertsPaths) {
  EXPECT_EQ(utf8_to_path(""), "");
  EXPECT_EQ(utf8_to_path("presets/caf\xC3\xA9.json"), "presets/caf\xC3\xA9.json");
  EXPECT_EQ(utf8_to_path("\xF0\x9F\x98\x80"), "\xF0\x9F\x98\x80");
  EXPECT_EQ(utf8_to_path("a\xFF"
                         "b"),
            "a\xEF\xBF\xBD"
            "b");
}

}  // namespace
}  // namespace velmora
