#include "command/ending.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

const StopRequest gentle{"0123456789abcdef", false};
const StopRequest forced{"0123456789abcdef", true};

TEST(Ending, DoesNothingUntilSomebodyAsks) {
  Ending ending;
  EXPECT_EQ(ending.next({0, 0, std::nullopt}), EndingStep::none);
  EXPECT_EQ(ending.next({1'000'000, 0, std::nullopt}), EndingStep::none);
  EXPECT_FALSE(ending.was_forced());
}

TEST(Ending, InterruptsOnceForAConsoleEvent) {
  Ending ending;
  EXPECT_EQ(ending.next({10, 1, std::nullopt}), EndingStep::interrupt);
  EXPECT_EQ(ending.next({20, 1, std::nullopt}), EndingStep::none);
  EXPECT_EQ(ending.next({30, 2, std::nullopt}), EndingStep::none);
  EXPECT_EQ(ending.next({40, 2, gentle}), EndingStep::none);
  EXPECT_FALSE(ending.was_forced());
}

TEST(Ending, InterruptsOnceForAStopRequest) {
  Ending ending;
  EXPECT_EQ(ending.next({10, 0, gentle}), EndingStep::interrupt);
  EXPECT_EQ(ending.next({20, 0, gentle}), EndingStep::none);
  EXPECT_EQ(ending.next({30, 1, std::nullopt}), EndingStep::none);
}

TEST(Ending, SaysOnceThatTheServiceIsHeld) {
  Ending ending;
  EXPECT_EQ(ending.next({100, 1, std::nullopt}), EndingStep::interrupt);
  EXPECT_EQ(ending.next({100 + clean_end_ms - 1, 1, std::nullopt}), EndingStep::none);
  EXPECT_EQ(ending.next({100 + clean_end_ms, 1, std::nullopt}), EndingStep::say_held);
  EXPECT_EQ(ending.next({100 + clean_end_ms + 1, 1, std::nullopt}), EndingStep::none);
  EXPECT_EQ(ending.next({1'000'000, 1, gentle}), EndingStep::none);
  EXPECT_FALSE(ending.was_forced());
}

TEST(Ending, IsForcedByAFurtherEventOnceTheServiceIsHeld) {
  Ending ending;
  EXPECT_EQ(ending.next({0, 1, std::nullopt}), EndingStep::interrupt);
  // An event before the message does not count.
  EXPECT_EQ(ending.next({clean_end_ms, 2, std::nullopt}), EndingStep::say_held);
  EXPECT_EQ(ending.next({clean_end_ms + 1, 2, std::nullopt}), EndingStep::none);
  EXPECT_EQ(ending.next({clean_end_ms + 2, 3, std::nullopt}), EndingStep::end_at_once);
  EXPECT_TRUE(ending.was_forced());
  EXPECT_EQ(ending.next({clean_end_ms + 3, 4, forced}), EndingStep::none);
}

TEST(Ending, IsForcedByARequestAtAnyTime) {
  Ending first;
  EXPECT_EQ(first.next({0, 0, forced}), EndingStep::end_at_once);
  EXPECT_TRUE(first.was_forced());
  EXPECT_EQ(first.next({1, 1, gentle}), EndingStep::none);
  Ending later;
  EXPECT_EQ(later.next({0, 0, gentle}), EndingStep::interrupt);
  EXPECT_EQ(later.next({1, 0, forced}), EndingStep::end_at_once);
  EXPECT_TRUE(later.was_forced());
}

}  // namespace
}  // namespace velmora
