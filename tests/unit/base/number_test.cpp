#include "base/number.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "unit/support/comma_locale.h"
#include "unit/support/fresh_machine.h"
#include "unit/support/split.h"

namespace velmora {
namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float least = std::numeric_limits<float>::denorm_min();
constexpr float largest = std::numeric_limits<float>::max();

bool same(std::optional<float> left, std::optional<float> right) {
  if (!left || !right) return left.has_value() == right.has_value();
  if (std::isnan(*left) || std::isnan(*right)) return std::isnan(*left) && std::isnan(*right);
  return *left == *right && std::signbit(*left) == std::signbit(*right);
}

std::string shown(std::optional<float> number) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%a", static_cast<double>(number.value_or(0)));
  return number ? text.data() : "none";
}

struct Row {
  std::string text;
  std::optional<float> number;
};

std::vector<Row> rows() {
  const std::string zeros(60'000, '0');
  const std::string half_of_least =
      "7.006492321624085354618647916449580656401309709382578858785341419448955413429303007433190941810607"
      "91015625";
  using namespace std::string_literals;
  std::vector<Row> all = {
      {"-.5", -0.5f},
      {"5.", 5.0f},
      {"5.e1", 50.0f},
      {"0.75", 0.75f},
      {"1.2.3", 1.2f},
      {"0xaBcDeF", 11259375.0f},
      {"0x.8", 0.5f},
      {"0x1.8", 1.5f},
      {"0x1p-3", 0.125f},
      {"0x1e3", 483.0f},
      {"0x6c64fccp-153", 0x6c64fdp-149f},
      {"0x1.0000010000000000000000001p0", std::nextafter(1.0f, 2.0f)},
      {"0x1.000003p0", 0x1.000004p0f},
      {"0x1000003", 16777220.0f},
      {"1e-40", 1e-40f},
      {"1.1754942e-38", 1.1754942e-38f},
      {"", {}},
      {"\"1\"", {}},
      {"1e 1", 1.0f},
      {half_of_least + "e-46", 0.0f},
      {half_of_least + "1e-46", least},
      {"16777217." + zeros + "1", 16777218.0f},
      {zeros + "7", 7.0f},
      {"0." + zeros + "7", 0.0f},
      {"0." + zeros + "7e60001", 7.0f},
      {"1" + zeros, infinity},
      {"1" + zeros + "e-60000", 1.0f},
      {"1" + zeros + "e-60046", 0.0f},
      {"0x0." + zeros + "8p240000", 0.5f},
      {"0x8" + zeros + "p-240003", 1.0f},
      {"7\0008"s, 7.0f},
      {"0x7\0008"s, 7.0f},
      {"\0001"s, {}},
  };
  const struct {
    std::optional<float> number;
    std::string texts;
  } groups[] = {
      {{}, "- + . -. +.e1 e1 --1 +-1 -+1 ++1 x1 p1 i in na"},
      {0.0f,
       "0 +0 0e99999999999999999999 0x 0xg 0x. 0x.p1 0xp1 0x-1 00x1 0x0p99999999999999999999 "
       "0x1p-150 0x1p-99999999999999999999 1e-99999999999999999999 7e-46 1e-60"},
      {-0.0f,
       "-0 -.0e5 -0e-99999999999999999999 -0x -0x0p1 -0x1p-150 -1e-99999999999999999999 "
       "-7e-46"},
      {1.0f,
       "1 +1 1,5 1.. 1e 1e+ 1e- 1e+-1 1p2 1f 0x1 0x1. 0x1..8 0x1p 0x1p+ 0x1p- 0x1p+-1 "
       "0x1.000001p0"},
      {100.0f, "1E2 1e+2 1e02"},
      {2.0f, "2dB 0X1P1 0x1.p1"},
      {least, "0x1p-149 0x1.0000001p-150 100000e-50 1e-45 7.1e-46"},
      {2 * least, "0x3p-150 0x1.8p-149 0x2.8p-149"},
      {std::numeric_limits<float>::min(), "0x1.ffffffp-127 1.17549435e-38"},
      {largest, "0x1.fffffep127 0x1.fffffefffffffffffp127 3.4028234e38 3.4028235677973362e38"},
      {infinity,
       "0x1.ffffffp127 0x1p128 0x1p99999999999999999999 1e39 3.4028235677973367e38 "
       "1e99999999999999999999 0.00001e44 inf infinity infinit"},
      {-infinity, "-0x1p128 -1e39 -INF"},
      {16777216.0f, "0x1000001 0x1000001000000000000000000p-72 16777217"},
      {16777218.0f, "0x1000001000000000000000001p-72 16777217.0000000000000000000000000000000000001"},
      {std::nanf(""), "nan -NaN nan(1) nan("},
  };
  for (const auto& group : groups) {
    for (const std::string& text : split(group.texts)) all.push_back({text, group.number});
  }
  return all;
}

TEST(ReadFloat, ReadsWhatStrtofReads) {
  for (const Row& row : rows()) {
    SCOPED_TRACE(row.text.substr(0, 60));
    const ExactBlock block(row.text);
    EXPECT_TRUE(same(read_float(block.view()), row.number)) << shown(read_float(block.view()));
  }
}

TEST(ReadFloat, DoesNotDependOnTheLocale) {
  const CommaLocale comma;
  ASSERT_EQ(std::strtof("0.75", nullptr), 0.0f);
  for (const Row& row : rows()) {
    SCOPED_TRACE(row.text.substr(0, 60));
    EXPECT_TRUE(same(read_float(row.text), row.number)) << shown(read_float(row.text));
  }
}

std::optional<float> by_strtof(const std::string& text) {
  char* end = nullptr;
  const float number = std::strtof(text.c_str(), &end);
  if (end == text.c_str()) return std::nullopt;
  return number;
}

// Pieces of numbers in any order: most are cut short or wrong somewhere.
std::string random_pieces(std::mt19937& random) {
  static const std::vector<std::string> pieces = {
      "0",  "1",  "9",  "75", "00",  ".",   "e",   "E",        "+",     "-", "x",
      "0x", "0X", "p",  "P",  "a",   "f",   "inf", "nan",      "INITY", "(", ")",
      ",",  "38", "39", "45", "126", "149", "150", "16777217", "ffffff"};
  std::string text;
  for (std::size_t left = 1 + random() % 7; left > 0; --left) text += pieces[random() % pieces.size()];
  return text;
}

// A whole number of either base, often near the ends of a float's range.
std::string random_number(std::mt19937& random) {
  const bool hex = random() % 2 == 0;
  const std::string_view digits = hex ? "0123456789abcdefABCDEF" : "0123456789";
  std::string text = random() % 3 == 0 ? "-" : "";
  if (hex) text += "0x";
  const std::size_t length = 1 + random() % 30;
  const std::size_t point = random() % 40;
  for (std::size_t index = 0; index < length; ++index) {
    if (index == point) text += '.';
    text += digits[random() % digits.size()];
  }
  const int limit = hex ? 170 : 60;
  const int exponent = static_cast<int>(random() % static_cast<unsigned>(2 * limit)) - limit;
  return text + (hex ? 'p' : 'e') + std::to_string(exponent);
}

// glibc 2.36 truncates a few hexadecimal numbers below the smallest normal float that it should round up.
bool nearly_same_and_tiny(std::optional<float> left, std::optional<float> right) {
  return left && right && std::abs(*left) < std::numeric_limits<float>::min() &&
         std::abs(*left - *right) <= least;
}

TEST(ReadFloat, MatchesStrtofOnRandomTexts) {
  std::mt19937 random(20261121);
  for (int round = 0; round < 200'000; ++round) {
    const std::string text = round % 2 == 0 ? random_pieces(random) : random_number(random);
    const bool hexadecimal = text.find_first_of("xX") != std::string::npos;
    if (hexadecimal && nearly_same_and_tiny(read_float(text), by_strtof(text))) continue;
    ASSERT_TRUE(same(read_float(text), by_strtof(text)))
        << text << ": " << shown(read_float(text)) << ", strtof: " << shown(by_strtof(text));
  }
}

}  // namespace
}  // namespace velmora
