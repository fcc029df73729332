#include "service/console.h"

#include <gtest/gtest.h>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using Console = FreshMachine;

TEST_F(Console, StopsTheServiceAtFourEventsOnly) {
  for (std::uint32_t event = 0; event < 300; ++event) {
    stop_requested = false;
    const bool ours = event == 0 || event == 1 || event == 2 || event == 6;
    EXPECT_EQ(console_ctrl_handler(event), ours) << event;
    EXPECT_EQ(stop_requested, ours) << event;
  }
  EXPECT_FALSE(console_ctrl_handler(0xFFFFFFFF));
}

TEST_F(Console, KeepsAStopRequestAtAnUnknownEvent) {
  EXPECT_TRUE(console_ctrl_handler(0));
  EXPECT_FALSE(console_ctrl_handler(5));
  EXPECT_TRUE(stop_requested);
}

}  // namespace
}  // namespace velmora
