// What a child takes over from this process without being asked.
#include <gtest/gtest.h>

#include <windows.h>

#include <string>

#include "platform/child_process.h"
#include "platform/command_surroundings.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

constexpr std::uint32_t long_enough_ms = 20'000;

class WindowsChildProcess : public surroundings::Arranged {};

// Programs that were started with `start /b`, or in a process group of their own, ignore Ctrl+C.
TEST_F(WindowsChildProcess, CanBeInterruptedEvenIfThisProcessIgnoresIt) {
  const std::string program = surroundings::set_up_children();
  ASSERT_TRUE(SetConsoleCtrlHandler(nullptr, TRUE));
  ChildProcess child;
  const std::uint32_t error = surroundings::start_reliably(program, {"wait"}, child);
  SetConsoleCtrlHandler(nullptr, FALSE);
  ASSERT_EQ(error, 0u);
  ASSERT_EQ(wait_for_child(child, long_enough_ms).bytes, "ready\n");
  ChildProcess helper;
  ASSERT_EQ(
      surroundings::start_reliably(program, {"interrupt", std::to_string(child_process_id(child))}, helper),
      0u);
  const ChildEvent done = wait_for_child(helper, long_enough_ms);
  EXPECT_EQ(done.kind, ChildEvent::Kind::ended);
  EXPECT_EQ(done.exit_code, 0u);
  constexpr std::uint32_t delivery_ms = 5000;
  EXPECT_EQ(wait_for_child(child, delivery_ms).bytes, "interrupted\n");
}

}  // namespace
}  // namespace velmora
