#include "binding/chain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "unit/binding/support/endpoint_machine.h"

namespace velmora {
namespace {

using namespace std::string_literals;
using endpoint::class_a;
using endpoint::class_a_lower;
using endpoint::class_f;

constexpr char guid[] = "{feab839f-3407-471a-aa45-bcd41f1bb5f6}";
constexpr char upper_guid[] = "{FEAB839F-3407-471A-AA45-BCD41F1BB5F6}";

// Texts that are no GUID of an endpoint.
std::vector<std::string> broken_guids() {
  const std::string good = guid;
  std::vector<std::string> broken = {
      "",
      "{",
      "}",
      "{}",
      "x",
      std::string(38, 'a'),
      good.substr(0, 37),
      good.substr(1),
      good.substr(1, 36),
      good + " ",
      " " + good,
      good + "\0"s,
      good + "}",
      good.substr(0, 36) + "}",
      good.substr(0, 37) + "0}",
      "{0" + good.substr(1),
      good + good,
      "\xFF\xFE" + good,
      std::string(65536, '{'),
      good + std::string(65536, '}'),
  };
  const auto replaced = [&](std::size_t index, char byte) {
    std::string text = good;
    text[index] = byte;
    return text;
  };
  for (std::size_t index = 0; index < good.size(); ++index) {
    for (const char byte : {'\0', ' ', 'g', 'G', '/', ':', '@', '`', '\x7F', '\x80', '\xFF', '.'}) {
      broken.push_back(replaced(index, byte));
    }
    const bool is_dash_place = good[index] == '-';
    const bool is_digit_place = !is_dash_place && index != 0 && index != 37;
    if (!is_digit_place) broken.push_back(replaced(index, '0'));
    if (!is_dash_place) broken.push_back(replaced(index, '-'));
    if (index != 0) broken.push_back(replaced(index, '{'));
    if (index != 37) broken.push_back(replaced(index, '}'));
  }
  return broken;
}

TEST(EndpointGuid, AcceptsEachHexadecimalDigit) {
  EXPECT_TRUE(is_endpoint_guid(guid));
  EXPECT_TRUE(is_endpoint_guid(upper_guid));
  EXPECT_TRUE(is_endpoint_guid("{00000000-0000-0000-0000-000000000000}"));
  EXPECT_TRUE(is_endpoint_guid("{FfFfFfFf-aAaA-09af-09AF-123456789abc}"));
  for (std::size_t index = 1; index < 37; ++index) {
    if (guid[index] == '-') continue;
    for (const char digit : "0123456789abcdefABCDEF"s) {
      std::string text = guid;
      text[index] = digit;
      EXPECT_TRUE(is_endpoint_guid(text)) << text;
    }
  }
}

TEST(EndpointGuid, RefusesEveryOtherForm) {
  for (const std::string& text : broken_guids()) {
    SCOPED_TRACE(::testing::PrintToString(text.substr(0, 80)));
    const ExactBlock block(text);
    EXPECT_FALSE(is_endpoint_guid(block.view()));
  }
}

TEST(EndpointGuid, RefusesEveryOtherDigit) {
  const std::string digits = "0123456789abcdefABCDEF";
  for (int value = 0; value < 256; ++value) {
    std::string text = guid;
    text[1] = static_cast<char>(value);
    text[36] = static_cast<char>(value);
    EXPECT_EQ(is_endpoint_guid(text), digits.find(static_cast<char>(value)) != std::string::npos) << value;
  }
}

TEST(EndpointId, ReturnsTheGuidAfterTheLastDotAndBrace) {
  const std::string good = guid;
  const struct {
    std::string id;
    std::string guid;
  } rows[] = {
      {good, good},
      {upper_guid, upper_guid},
      {"{0.0.0.00000000}." + good, good},
      {"{0.0.0.00000000}."s + upper_guid, upper_guid},
      {"{0.0.1.00000000}." + good, good},
      {"." + good, good},
      {".." + good, good},
      {"x." + good, good},
      {"\xFF\xFE." + good, good},
      {"\0."s + good, good},
      {std::string(65536, 'x') + "." + good, good},
      {"{a}.{b}." + good, good},
      {"." + good + "." + upper_guid, upper_guid},
      {".{.{.{." + good, good},
      {"{0.0.0.00000000}.{FEAB839f-3407-471a-aa45-bcd41f1bb5f6}", "{FEAB839f-3407-471a-aa45-bcd41f1bb5f6}"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.id.substr(0, 100));
    const ExactBlock block(row.id);
    std::string taken = "before";
    EXPECT_TRUE(endpoint_guid_from_id(block.view(), taken));
    EXPECT_EQ(taken, row.guid);
  }
}

TEST(EndpointId, RefusesOtherFormsAndLeavesTheOutput) {
  std::vector<std::string> ids = broken_guids();
  const std::string good = guid;
  const std::string more[] = {
      "{0.0.0.00000000}.{not-a-guid}",
      ".{",
      ".",
      "{0.0.0.00000000}.",
      "{0.0.0.00000000}",
      "{0.0.0.00000000}" + good,
      "{0.0.0.00000000}. " + good,
      "{0.0.0.00000000}.." + good + " ",
      "{0.0.0.00000000}." + good + ".",
      "." + good + ".{",
      "." + good + ".{}",
      good + ".{x}",
      "{0.0.0.00000000}." + good.substr(1),
      std::string(65536, '.') + "{",
  };
  ids.insert(ids.end(), std::begin(more), std::end(more));
  for (const std::string& broken : broken_guids()) ids.push_back("{0.0.0.00000000}." + broken);
  for (const std::string& id : ids) {
    SCOPED_TRACE(::testing::PrintToString(id.substr(0, 100)));
    const ExactBlock block(id);
    std::string taken = "before";
    EXPECT_FALSE(endpoint_guid_from_id(block.view(), taken));
    EXPECT_EQ(taken, "before");
  }
}

TEST(EffectId, IgnoresOnlyTheCaseOfLetters) {
  const std::pair<std::string, std::string> rows[] = {
      {class_a, class_f}, {class_a, std::string(class_a) + " "},
      {class_a, ""},      {"", class_a},
      {"a", "aa"},        {"aa", "a"},
      {"@", "`"},         {"[", "{"},
      {"\xC0", "\xE0"},   {"a\0b"s, "a\0c"s},
      {"a", "a\0"s},
  };
  for (const auto& [left, right] : rows) EXPECT_FALSE(same_effect_id(left, right)) << left << " " << right;
  EXPECT_TRUE(same_effect_id(class_a, class_a_lower));
  EXPECT_TRUE(same_effect_id("a\0b"s, "A\0B"s));
}

TEST(EffectId, FoldsOnlyThe26Letters) {
  for (int left = 0; left < 256; ++left) {
    for (int right = 0; right < 256; ++right) {
      const bool is_pair = (left >= 'a' && left <= 'z' && right == left - 32) ||
                           (right >= 'a' && right <= 'z' && left == right - 32);
      const char a = static_cast<char>(left);
      const char b = static_cast<char>(right);
      ASSERT_EQ(same_effect_id({&a, 1}, {&b, 1}), left == right || is_pair) << left << " " << right;
    }
  }
}

TEST(Chain, KeepsAForeignEntryInFront) {
  const Chain foreign = {class_f};
  const Chain both = chain_with(foreign, class_a);
  EXPECT_EQ(both, (Chain{class_f, class_a}));
  EXPECT_EQ(chain_with(both, class_a), both);
  EXPECT_EQ(chain_with(both, class_a_lower), both);
  EXPECT_EQ(chain_without(both, class_a_lower), foreign);
}

TEST(Chain, FindsAnEntryAnywhereInAnyCase) {
  EXPECT_FALSE(chain_contains({}, class_a));
  EXPECT_FALSE(chain_contains({class_f}, class_a));
  EXPECT_FALSE(chain_contains({std::string(class_a) + " "}, class_a));
  EXPECT_TRUE(chain_contains({class_a}, class_a));
  EXPECT_TRUE(chain_contains({class_f, class_a_lower}, class_a));
  EXPECT_TRUE(chain_contains({class_a, class_f}, class_a_lower));
  EXPECT_FALSE(chain_contains({class_f}, ""));
  EXPECT_TRUE(chain_contains({class_f, ""}, ""));
}

TEST(Chain, AppendsOnlyAtTheEnd) {
  EXPECT_EQ(chain_with({}, "x"), Chain{"x"});
  EXPECT_EQ(chain_with({"c", "a", "a", "b"}, "x"), (Chain{"c", "a", "a", "b", "x"}));
  EXPECT_EQ(chain_with({"c", "X", "b"}, "x"), (Chain{"c", "X", "b"}));
}

TEST(Chain, RemovesEveryEntryOfAnIdInOrder) {
  EXPECT_EQ(chain_without({}, "x"), Chain{});
  EXPECT_EQ(chain_without({"x"}, "x"), Chain{});
  EXPECT_EQ(chain_without({"x", "c", "X", "a", "x", "b", "a", "X"}, "x"), (Chain{"c", "a", "b", "a"}));
  EXPECT_EQ(chain_without({"c", "a"}, "x"), (Chain{"c", "a"}));
}

TEST(Chain, ListsTheSixModesInOrder) {
  EXPECT_TRUE(std::equal(default_processing_modes.begin(), default_processing_modes.end(),
                         endpoint::six_modes().begin(), endpoint::six_modes().end()));
}

}  // namespace
}  // namespace velmora
