#include "command/words.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace velmora {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

TEST(Words, CountWholeNumbers) {
  const std::pair<std::optional<double>, std::string_view> rows[] = {
      {0.0, "0"},          {-0.0, "0"},     {1234567.0, "1234567"}, {-3.0, "-3"}, {2.9, "2"},
      {std::nullopt, "?"}, {infinity, "?"}, {std::nan(""), "?"},    {1e300, "?"}};
  for (const auto& [number, text] : rows) EXPECT_EQ(count_text(number), text);
}

TEST(Words, ShowSharesAsPercent) {
  const std::pair<std::optional<double>, std::string_view> rows[] = {
      {0.0, "0 %"},   {-0.0, "0 %"},   {0.5, "50 %"},       {1.0, "100 %"},   {0.004, "< 1 %"},
      {0.006, "1 %"}, {-0.001, "0 %"}, {std::nullopt, "?"}, {-infinity, "?"}, {std::nan(""), "?"}};
  for (const auto& [share, text] : rows) EXPECT_EQ(percent_text(share), text);
}

TEST(Words, ShowDecibels) {
  const std::pair<std::optional<double>, std::string_view> rows[] = {
      {0.0, "0 dB"},       {-0.0, "0 dB"},    {3.5, "+3.5 dB"},   {6.0, "+6 dB"},
      {-6.0, "-6 dB"},     {-0.3, "-0.3 dB"}, {-0.04, "0 dB"},    {-12.25, "-12.3 dB"},
      {std::nullopt, "?"}, {infinity, "?"},   {std::nan(""), "?"}};
  for (const auto& [decibels, text] : rows) EXPECT_EQ(decibels_text(decibels), text);
}

TEST(Words, DoNotCommandTheTerminal) {
  EXPECT_EQ(printable("Speakers (\xE6\x89\xAC)"), "Speakers (\xE6\x89\xAC)");
  EXPECT_EQ(printable(std::string_view("a\x1B[2J\n\0\x7F", 8)), "a?[2J???");
}

}  // namespace
}  // namespace velmora
