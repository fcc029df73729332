#include "platform/clock.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>

#include "platform/environment_surroundings.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class ClockContract : public surroundings::Arranged {};

TEST_F(ClockContract, NeverGoesBack) {
  std::int64_t former = steady_now_ns();
  for (int round = 0; round < 100'000; ++round) {
    const std::int64_t now = steady_now_ns();
    ASSERT_GE(now, former);
    former = now;
  }
}

TEST_F(ClockContract, SleepsAtLeastAsLongAsAsked) {
  for (const std::uint32_t duration_ms : {0u, 1u, 2u, 15u, 40u}) {
    SCOPED_TRACE(duration_ms);
    const std::int64_t before = steady_now_ns();
    sleep_ms(duration_ms);
    EXPECT_GE(steady_now_ns() - before, std::int64_t{duration_ms} * 1'000'000);
  }
}

TEST_F(ClockContract, ReadsTheLocalTimeOfTheCLibrary) {
  std::tm local{};
  ASSERT_TRUE(read_local_time(local));
  std::tm again = local;
  again.tm_isdst = -1;
  const std::time_t seconds = std::mktime(&again);
  EXPECT_LE(std::abs(std::difftime(std::time(nullptr), seconds)), 10.0);
  const std::tm expected = *std::localtime(&seconds);
  EXPECT_EQ(local.tm_year, expected.tm_year);
  EXPECT_EQ(local.tm_mon, expected.tm_mon);
  EXPECT_EQ(local.tm_mday, expected.tm_mday);
  EXPECT_EQ(local.tm_hour, expected.tm_hour);
  EXPECT_EQ(local.tm_min, expected.tm_min);
  EXPECT_EQ(local.tm_sec, expected.tm_sec);
  EXPECT_EQ(local.tm_wday, expected.tm_wday);
  EXPECT_EQ(local.tm_yday, expected.tm_yday);
}

TEST_F(ClockContract, ReadsTheTimeOfTheEpochInSeconds) {
  const std::int64_t before = std::time(nullptr);
  surroundings::set_unix_clock();
  const std::int64_t now = unix_time_s();
  const std::int64_t after = std::time(nullptr);
  EXPECT_GE(now, before);
  EXPECT_LE(now, after);
}

}  // namespace
}  // namespace velmora
