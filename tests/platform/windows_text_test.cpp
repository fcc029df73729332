// The text conversions compared with the system's own.
#include "base/text.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/surroundings.h"

namespace velmora {
namespace {

std::optional<std::u16string> widened_by_system(std::string_view text, DWORD flags) {
  if (text.empty()) return std::u16string();
  std::wstring wide(text.size(), L'\0');
  const int length = MultiByteToWideChar(CP_UTF8, flags, text.data(), static_cast<int>(text.size()),
                                         wide.data(), static_cast<int>(wide.size()));
  if (length <= 0) return std::nullopt;
  return std::u16string(wide.begin(), wide.begin() + length);
}

// Empty text where the system refuses to convert.
std::string narrowed_by_system(std::u16string_view text, DWORD flags) {
  if (text.empty()) return {};
  const std::wstring wide(text.begin(), text.end());
  std::string narrow(text.size() * 3, '\0');
  const int length = WideCharToMultiByte(CP_UTF8, flags, wide.data(), static_cast<int>(wide.size()),
                                         narrow.data(), static_cast<int>(narrow.size()), nullptr, nullptr);
  return narrow.substr(0, static_cast<std::size_t>(length));
}

// The units of a text, each in `digits` hexadecimal digits.
template <typename Text>
std::string hex(const Text& text, int digits) {
  std::string line;
  for (const auto unit : text) {
    char piece[8];
    const auto number = static_cast<std::make_unsigned_t<typename Text::value_type>>(unit);
    std::snprintf(piece, sizeof piece, "%0*x ", digits, static_cast<unsigned>(number));
    line += piece;
  }
  return line;
}
std::string hex(std::string_view text) { return hex(text, 2); }
std::string hex(std::u16string_view text) { return hex(text, 4); }

// Collects what differs: how often, and the first cases.
struct Differences {
  std::size_t count = 0;
  std::string first;

  void add(const std::string& text) {
    if (count++ < 20) first += text + "\n";
  }
};

// Bytes of the sequence that a lead byte begins; 1 for every other byte.
std::size_t length_by_lead(unsigned char lead) {
  if (lead < 0xC2 || lead > 0xF4) return 1;
  return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

// The second bytes that are continuations, yet none behind this lead: overlong, surrogates, beyond U+10FFFF.
bool is_refused_second(unsigned char lead, unsigned char second) {
  if (second < 0x80 || second > 0xBF) return false;
  return (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
         (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F);
}

// Where Wine 8 gives fewer U+FFFD than one for each maximal subpart: it takes a refused second byte together
// with its lead, and behind a lead whose sequence would pass the end of the text it takes all that is left.
bool wine_departs(std::string_view text) {
  for (std::size_t index = 0; index < text.size(); ++index) {
    const auto lead = static_cast<unsigned char>(text[index]);
    const std::size_t length = length_by_lead(lead);
    const std::string_view rest = text.substr(index);
    if (length > rest.size()) return wide_from_utf8_replacing(rest).size() != 1;
    if (length > 1 && is_refused_second(lead, static_cast<unsigned char>(rest[1]))) return true;
  }
  return false;
}

// Both that refuse: one has no value and the other empty text.
void compare_strict_widening(std::string_view text, Differences& differences) {
  const auto strict = wide_from_utf8_strict(text);
  const auto their_strict = widened_by_system(text, MB_ERR_INVALID_CHARS);
  if (strict != their_strict) {
    differences.add(hex(text) + ": strictly ours " + (strict ? hex(*strict) : "none") + ", the system's " +
                    (their_strict ? hex(*their_strict) : "none"));
  }
  if (wide_from_utf8(text) != their_strict.value_or(u"")) differences.add(hex(text) + ": ours is not empty");
}

void compare_widening(std::string_view text, Differences& differences) {
  const std::u16string ours = wide_from_utf8_replacing(text);
  const auto theirs = widened_by_system(text, 0);
  // Exactly: a departure that has gone is reported too.
  const bool departs = surroundings::runs_under_wine() && wine_departs(text);
  if ((theirs != ours) != departs) {
    differences.add(hex(text) + ": ours " + hex(ours) + ", the system's " + (theirs ? hex(*theirs) : "none"));
  }
  compare_strict_widening(text, differences);
}

void compare_narrowing(std::u16string_view text, Differences& differences) {
  const std::string ours = utf8_from_wide_replacing(text);
  const std::string theirs = narrowed_by_system(text, 0);
  if (ours != theirs) differences.add(hex(text) + ": ours " + hex(ours) + ", the system's " + hex(theirs));
  const std::string strict = utf8_from_wide(text);
  const std::string their_strict = narrowed_by_system(text, WC_ERR_INVALID_CHARS);
  if (strict != their_strict) {
    differences.add(hex(text) + ": strictly ours " + hex(strict) + ", the system's " + hex(their_strict));
  }
}

// The bytes at which some rule begins or ends.
std::string boundary_bytes() {
  return {'\x00', 'A',    '\x7F', '\x80', '\x81', '\x8F', '\x90', '\x9F', '\xA0', '\xBF', '\xC0',
          '\xC1', '\xC2', '\xDF', '\xE0', '\xE1', '\xEC', '\xED', '\xEE', '\xEF', '\xF0', '\xF1',
          '\xF3', '\xF4', '\xF5', '\xF7', '\xF8', '\xFB', '\xFC', '\xFD', '\xFE', '\xFF'};
}

TEST(WindowsText, EverySingleUnitNarrowsAsTheSystemDoes) {
  Differences differences;
  for (unsigned unit = 0; unit <= 0xFFFF; ++unit) {
    const char16_t one = static_cast<char16_t>(unit);
    compare_narrowing({&one, 1}, differences);
    const char16_t between[3] = {u'a', one, u'b'};
    compare_narrowing({between, 3}, differences);
  }
  EXPECT_EQ(differences.count, 0u) << differences.first;
}

TEST(WindowsText, PairsOfUnitsAtEveryBoundaryNarrowAsTheSystemDoes) {
  const char16_t edges[] = {0x0000, 0x0041, 0x007F, 0x0080, 0x07FF, 0x0800, 0xD7FF, 0xD800, 0xD801, 0xDBFE,
                            0xDBFF, 0xDC00, 0xDC01, 0xDFFE, 0xDFFF, 0xE000, 0xFEFF, 0xFFFD, 0xFFFE, 0xFFFF};
  Differences differences;
  for (const char16_t first : edges) {
    for (const char16_t second : edges) {
      for (const char16_t third : edges) {
        const char16_t units[3] = {first, second, third};
        compare_narrowing({units, 2}, differences);
        compare_narrowing({units, 3}, differences);
      }
    }
  }
  for (unsigned high = 0xD800; high < 0xDC00; ++high) {
    for (const unsigned low : {0xDC00u, 0xDDABu, 0xDFFFu}) {
      const char16_t units[2] = {static_cast<char16_t>(high), static_cast<char16_t>(low)};
      compare_narrowing({units, 2}, differences);
    }
  }
  EXPECT_EQ(differences.count, 0u) << differences.first;
}

TEST(WindowsText, EveryScalarValueWidensAsTheSystemDoes) {
  Differences differences;
  for (unsigned scalar = 0; scalar <= 0x10FFFF; ++scalar) {
    if (scalar >= 0xD800 && scalar < 0xE000) continue;
    std::u16string wide;
    if (scalar < 0x10000) {
      wide = static_cast<char16_t>(scalar);
    } else {
      wide = {static_cast<char16_t>(0xD7C0 + (scalar >> 10)),
              static_cast<char16_t>(0xDC00 + (scalar & 0x3FF))};
    }
    const std::string narrow = utf8_from_wide_replacing(wide);
    compare_narrowing(wide, differences);
    if (wide_from_utf8_replacing(narrow) != wide) differences.add(hex(narrow) + " does not come back");
    compare_widening(narrow, differences);
  }
  EXPECT_EQ(differences.count, 0u) << differences.first;
}

TEST(WindowsText, EveryInputOfOneOrTwoBytesWidensAsTheSystemDoes) {
  Differences differences;
  for (int first = 0; first < 256; ++first) {
    const char one = static_cast<char>(first);
    compare_widening({&one, 1}, differences);
    for (int second = 0; second < 256; ++second) {
      const char two[2] = {one, static_cast<char>(second)};
      compare_widening({two, 2}, differences);
    }
  }
  EXPECT_EQ(differences.count, 0u) << differences.first;
}

TEST(WindowsText, ThreeAndFourBytesAtEveryBoundaryWidenAsTheSystemDoes) {
  Differences differences;
  const std::string bytes = boundary_bytes();
  for (const char first : bytes) {
    for (const char second : bytes) {
      for (const char third : bytes) {
        const char three[3] = {first, second, third};
        compare_widening({three, 3}, differences);
        for (const char fourth : bytes) {
          const char four[4] = {first, second, third, fourth};
          compare_widening({four, 4}, differences);
        }
      }
    }
  }
  EXPECT_EQ(differences.count, 0u) << differences.first;
}

TEST(WindowsText, OverlongTruncatedAndTooLargeFormsWidenAsTheSystemDoes) {
  const std::string_view forms[] = {"\xC0\xAF",
                                    "\xE0\x80\xAF",
                                    "\xF0\x80\x80\xAF",
                                    "\xF8\x80\x80\x80\xAF",
                                    "\xFC\x80\x80\x80\x80\xAF",
                                    "\xC1\xBF",
                                    "\xE0\x9F\xBF",
                                    "\xF0\x8F\xBF\xBF",
                                    "\xF8\x87\xBF\xBF\xBF",
                                    "\xED\xA0\x80",
                                    "\xED\xBF\xBF",
                                    "\xED\xA0\x80\xED\xB0\x80",
                                    "\xF4\x90\x80\x80",
                                    "\xF5\x80\x80\x80",
                                    "\xF7\xBF\xBF\xBF",
                                    "\xE2\x82",
                                    "\xE2\x82\x41",
                                    "\xF0\x9D\x84",
                                    "\xF0\x9D\x84\x41",
                                    "\xF0\x9D",
                                    "\xF0\x9D\x41",
                                    "\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
                                    "\x80\x80\x80",
                                    "\xEF\xBB\xBF\x41",
                                    "\xEF\xBF\xBE",
                                    "\xEF\xBF\xBF",
                                    "\xC2",
                                    "A\xC2",
                                    "\xF4\x8F\xBF\xBF\xF4\x8F\xBF",
                                    "\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41"};
  Differences differences;
  for (const std::string_view form : forms) {
    compare_widening(form, differences);
    compare_widening("a" + std::string(form) + "z", differences);
    compare_widening(std::string(form) + std::string(form), differences);
  }
  EXPECT_EQ(differences.count, 0u) << differences.first;
}

// A number in the form of so many bytes, whether it is the right form for it or not.
std::string form_of(unsigned number, int bytes) {
  const auto piece = [&](int shift) { return static_cast<char>(0x80 | ((number >> shift) & 0x3F)); };
  if (bytes == 2) return {static_cast<char>(0xC0 | (number >> 6)), piece(0)};
  if (bytes == 3) return {static_cast<char>(0xE0 | (number >> 12)), piece(6), piece(0)};
  return {static_cast<char>(0xF0 | (number >> 18)), piece(12), piece(6), piece(0)};
}

TEST(WindowsText, EveryOverlongSurrogateAndTooLargeFormIsRefusedAsBySystem) {
  Differences differences;
  const auto compare = [&](const std::string& form) {
    if (!wide_from_utf8(form).empty()) differences.add(hex(form) + " is taken");
    compare_strict_widening(form, differences);
  };
  for (unsigned number = 0; number < 0x80; ++number) compare(form_of(number, 2));
  for (unsigned number = 0; number < 0x800; ++number) compare(form_of(number, 3));
  for (unsigned number = 0xD800; number < 0xE000; ++number) compare(form_of(number, 3));
  for (unsigned number = 0; number < 0x10000; ++number) compare(form_of(number, 4));
  for (unsigned number = 0x110000; number < 0x200000; number += 61) compare(form_of(number, 4));
  compare(form_of(0x110000, 4));
  compare(form_of(0x1FFFFF, 4));
  EXPECT_EQ(differences.count, 0u) << differences.first;
}

TEST(WindowsText, EveryTruncatedFormIsRefusedAsBySystem) {
  Differences differences;
  const auto compare = [&](const std::string& form) {
    for (std::size_t length = 1; length < form.size(); ++length) {
      const std::string cut = form.substr(0, length);
      for (const std::string& text : {cut, "a" + cut, cut + "z", cut + form, cut + std::string(1, '\0')}) {
        if (!wide_from_utf8(text).empty()) differences.add(hex(text) + " is taken");
        compare_strict_widening(text, differences);
      }
    }
  };
  for (unsigned number = 0x80; number < 0x800; number += 31) compare(form_of(number, 2));
  for (unsigned number = 0x800; number < 0x10000; number += 61) {
    if (number < 0xD800 || number > 0xDFFF) compare(form_of(number, 3));
  }
  for (unsigned number = 0x10000; number < 0x110000; number += 997) compare(form_of(number, 4));
  EXPECT_EQ(differences.count, 0u) << differences.first;
}

TEST(WindowsText, EverySurrogateBesideEveryKindOfUnitNarrowsAsTheSystemDoes) {
  const char16_t neighbours[] = {0x0000, 0x0041, 0x07FF, 0xD7FF, 0xD800,
                                 0xDBFF, 0xDC00, 0xDFFF, 0xE000, 0xFFFF};
  Differences differences;
  for (unsigned unit = 0xD800; unit < 0xE000; ++unit) {
    const char16_t surrogate = static_cast<char16_t>(unit);
    for (const char16_t neighbour : neighbours) {
      const char16_t units[3] = {surrogate, neighbour, surrogate};
      compare_narrowing({units, 2}, differences);
      compare_narrowing({units + 1, 2}, differences);
      compare_narrowing({units, 3}, differences);
    }
  }
  EXPECT_EQ(differences.count, 0u) << differences.first;
}

}  // namespace
}  // namespace velmora
