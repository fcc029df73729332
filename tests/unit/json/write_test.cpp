#include "json/write.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>
#include <random>

#include "unit/support/comma_locale.h"

namespace velmora {
namespace {

std::string appended(float value, int digits = default_digits) {
  std::string text;
  append_number(text, value, digits);
  return text;
}

TEST(JsonNumbers, HaveSixSignificantDigitsWithoutTrailingZeros) {
  const std::pair<float, std::string> rows[] = {
      {0.0f, "0"},
      {-0.0f, "-0"},
      {1.0f, "1"},
      {0.707f, "0.707"},
      {0.1f, "0.1"},
      {32.757877f, "32.7579"},
      {-32.757877f, "-32.7579"},
      {20000.0f, "20000"},
      {100000.0f, "100000"},
      {999999.0f, "999999"},
      {999999.5f, "1e+06"},
      {1e6f, "1e+06"},
      {1234567.0f, "1.23457e+06"},
      {1234565.0f, "1.23456e+06"},  // exactly half: to the even digit
      {1e10f, "1e+10"},
      {0.0001f, "0.0001"},
      {0.000099999f, "9.9999e-05"},
      {1e-5f, "1e-05"},
      {2.5e-7f, "2.5e-07"},
      {-1.17549435e-38f, "-1.17549e-38"},
      {std::numeric_limits<float>::max(), "3.40282e+38"},
      {std::numeric_limits<float>::lowest(), "-3.40282e+38"},
      {std::numeric_limits<float>::denorm_min(), "1.4013e-45"},
      {std::numeric_limits<float>::infinity(), "inf"},
      {-std::numeric_limits<float>::infinity(), "-inf"},
      {std::numeric_limits<float>::quiet_NaN(), "nan"},
      {-std::numeric_limits<float>::quiet_NaN(), "nan"},
      {std::bit_cast<float>(0xFFFFFFFFu), "nan"},
      {std::bit_cast<float>(0x7F800001u), "nan"},
  };
  for (const auto& [value, text] : rows) EXPECT_EQ(appended(value), text);
}

TEST(JsonNumbers, HaveAPointInEveryLocale) {
  const CommaLocale comma;
  EXPECT_EQ(appended(0.75f), "0.75");
  EXPECT_EQ(appended(1234567.0f), "1.23457e+06");
}

TEST(JsonNumbers, MatchPrintfForFloatsOfEveryMagnitude) {
  const auto expect_as_printed = [](std::uint32_t bits) {
    const auto value = std::bit_cast<float>(bits);
    if (std::isnan(value)) return;
    std::array<char, 64> printed{};
    std::snprintf(printed.data(), printed.size(), "%g", static_cast<double>(value));
    ASSERT_EQ(appended(value), printed.data()) << bits;
    std::snprintf(printed.data(), printed.size(), "%.7g", static_cast<double>(value));
    ASSERT_EQ(appended(value, status_digits), printed.data()) << bits;
  };
  std::mt19937 random(4242);
  for (int round = 0; round < 300'000; ++round) expect_as_printed(static_cast<std::uint32_t>(random()));
  for (std::uint32_t exponent = 0; exponent <= 255; ++exponent) {
    for (const std::uint32_t sign : {0u, 1u}) {
      for (const std::uint32_t fraction : {0u, 1u, 0x400000u, 0x7FFFFEu, 0x7FFFFFu}) {
        expect_as_printed(sign << 31 | exponent << 23 | fraction);
      }
    }
  }
  // Around each power of ten, where a digit or the form changes.
  for (int power = -45; power <= 38; ++power) {
    const auto near = std::bit_cast<std::uint32_t>(static_cast<float>(std::pow(10.0, power)));
    for (std::uint32_t offset = 0; offset < 64; ++offset) expect_as_printed(near + offset - 32);
  }
}

TEST(JsonNumbers, HaveSevenSignificantDigitsOnRequest) {
  EXPECT_EQ(appended(0.6f, status_digits), "0.6");
  EXPECT_EQ(appended(32.757877f, status_digits), "32.75788");
  EXPECT_EQ(appended(9999999.0f, status_digits), "9999999");
  EXPECT_EQ(appended(std::numeric_limits<float>::lowest(), status_digits), "-3.402823e+38");
  EXPECT_EQ(appended(-std::numeric_limits<float>::quiet_NaN(), status_digits), "nan");
}

TEST(JsonNumbers, AreAppended) {
  std::string text = "a";
  append_number(text, 0.5f);
  append_number(text, -2.0f);
  append_integer(text, 7);
  append_integer(text, -8);
  EXPECT_EQ(text, "a0.5-27-8");
}

TEST(JsonNumbers, SupportEveryInteger) {
  for (const std::int64_t value :
       {std::int64_t{0}, std::int64_t{-1}, std::int64_t{4294967296}, std::numeric_limits<std::int64_t>::max(),
        std::numeric_limits<std::int64_t>::min()}) {
    std::string text;
    append_integer(text, value);
    EXPECT_EQ(text, std::to_string(value));
  }
}

TEST(JsonNumbers, SupportEveryUnsignedInteger) {
  std::string text;
  append_unsigned(text, 0);
  append_unsigned(text, std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(text, "018446744073709551615");
}

TEST(JsonWords, AreTrueAndFalse) {
  std::string text = "a";
  append_bool(text, true);
  append_bool(text, false);
  EXPECT_EQ(text, "atruefalse");
}

TEST(JsonTexts, AreQuotedAndEscaped) {
  std::string text = ":";
  append_text(text, "a\"b\\c\n\x01\xC3\xA9/");
  append_text(text, "");
  EXPECT_EQ(text, ":\"a\\\"b\\\\c\\n\\u0001\xC3\xA9/\"\"\"");
}

TEST(JsonTexts, FormArraysWithoutBlanks) {
  const struct {
    std::vector<std::string> texts;
    std::string written;
  } rows[] = {
      {{}, "[]"},
      {{""}, "[\"\"]"},
      {{"a"}, "[\"a\"]"},
      {{"a", "b\"", "a"}, "[\"a\",\"b\\\"\",\"a\"]"},
  };
  for (const auto& row : rows) {
    std::string text;
    append_texts(text, row.texts);
    EXPECT_EQ(text, row.written);
  }
}

std::string object(const std::function<void(JsonObject&)>& fill, int digits = default_digits) {
  std::string out;
  JsonObject members(out, digits);
  fill(members);
  members.end();
  return out;
}

TEST(JsonObjects, MayBeEmpty) {
  EXPECT_EQ(object([](JsonObject&) {}), "{}");
}

TEST(JsonObjects, WriteTheirMembersInOrder) {
  EXPECT_EQ(object([](JsonObject& members) { members.add("z", 1); }), R"({"z":1})");
  EXPECT_EQ(object([](JsonObject& members) {
              members.add("z", 1);
              members.add("a", true);
              members.add("z", std::string_view("t"));
              members.add("", 2);
            }),
            R"({"z":1,"a":true,"z":"t","":2})");
}

TEST(JsonObjects, WriteEachType) {
  const struct {
    std::string value;
    std::function<void(JsonObject&)> add;
  } rows[] = {
      {"true", [](auto& members) { members.add("k", true); }},
      {"false", [](auto& members) { members.add("k", false); }},
      {"-2147483648", [](auto& members) { members.add("k", std::numeric_limits<std::int32_t>::min()); }},
      {"4294967295", [](auto& members) { members.add("k", std::numeric_limits<std::uint32_t>::max()); }},
      {"-9223372036854775808",
       [](auto& members) { members.add("k", std::numeric_limits<std::int64_t>::min()); }},
      {"18446744073709551615",
       [](auto& members) { members.add("k", std::numeric_limits<std::uint64_t>::max()); }},
      {"-1", [](auto& members) { members.add("k", std::int16_t{-1}); }},
      {"200", [](auto& members) { members.add("k", std::uint8_t{200}); }},
      {"0.5", [](auto& members) { members.add("k", 0.5f); }},
      {"nan", [](auto& members) { members.add("k", std::numeric_limits<float>::quiet_NaN()); }},
      {"\"\"", [](auto& members) { members.add("k", ""); }},
      // A text that is no std::string_view by itself is no number and no bool either.
      {"\"true\"", [](auto& members) { members.add("k", "true"); }},
      {"\"x\"", [](auto& members) { members.add("k", std::string("x")); }},
      {"\"a\\\\b\\\"c\\n\"", [](auto& members) { members.add("k", "a\\b\"c\n"); }},
      {"[]", [](auto& members) { members.add("k", std::vector<std::string>{}); }},
      {"[\"a\",\"\\\"\"]",
       [](auto& members) {
         members.add("k", std::vector<std::string>{"a", "\""});
       }},
  };
  for (const auto& row : rows) EXPECT_EQ(object(row.add), "{\"k\":" + row.value + "}");
}

TEST(JsonObjects, WriteFloatsWithTheirOwnDigits) {
  const auto add_float = [](JsonObject& members) {
    members.add("a", 32.757877f);
    members.add("b", 0.6f);
  };
  EXPECT_EQ(object(add_float), R"({"a":32.7579,"b":0.6})");
  EXPECT_EQ(object(add_float, status_digits), R"({"a":32.75788,"b":0.6})");
}

TEST(JsonObjects, ContainObjectsAndArrays) {
  EXPECT_EQ(object([](JsonObject& members) {
              JsonObject inner(members.begin("empty"));
              inner.end();
              JsonObject second(members.begin("second"), status_digits);
              second.add("x", 32.757877f);
              JsonObject deep(second.begin("deep"));
              deep.end();
              second.add("y", 2);
              second.end();
              members.add("n", 32.757877f);
              std::string& list = members.begin("list");
              list += '[';
              for (const int number : {1, 2}) {
                if (number == 2) list += ',';
                JsonObject entry(list);
                entry.add("n", number);
                entry.end();
              }
              list += ']';
              append_integer(members.begin("last").append("\"v"), 8);
              members.begin("after") += "null";
            }),
            R"({"empty":{},"second":{"x":32.75788,"deep":{},"y":2},"n":32.7579,)"
            R"("list":[{"n":1},{"n":2}],"last":"v8,"after":null})");
}

TEST(JsonObjects, StartWithoutACommaAfterAnyText) {
  for (const std::string before : {"{", "}", "x{", "\"}\""}) {
    std::string out = before;
    JsonObject members(out);
    members.add("a", "{");
    members.add("b", "}");
    members.end();
    EXPECT_EQ(out, before + R"({"a":"{","b":"}"})");
  }
}

}  // namespace
}  // namespace velmora
