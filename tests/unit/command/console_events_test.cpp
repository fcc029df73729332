#include "command/console_events.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

TEST(ConsoleEvents, AreCountedIfTheyAskForTheEnd) {
  console_events = 0;
  for (const std::uint32_t event : {0u, 1u, 2u, 5u, 6u}) EXPECT_TRUE(count_console_event(event)) << event;
  EXPECT_EQ(console_events, 5u);
  for (const std::uint32_t event : {3u, 4u, 7u, 255u}) EXPECT_FALSE(count_console_event(event)) << event;
  EXPECT_EQ(console_events, 5u);
  console_events = 0;
}

}  // namespace
}  // namespace velmora
