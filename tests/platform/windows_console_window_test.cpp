// The console window of Windows: its title, and the delay behind events that end the process.
#include <gtest/gtest.h>

#include <windows.h>

#include <array>
#include <string>

#include "platform/child_process.h"
#include "platform/clock.h"
#include "platform/command_surroundings.h"
#include "platform/console_window.h"
#include "platform/machine.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class WindowsConsoleWindow : public surroundings::Arranged {};

// In the console of a child, because a test run need not have one.
TEST_F(WindowsConsoleWindow, HasItsTitle) {
  velmora::ChildProcess child;
  ASSERT_EQ(surroundings::start_reliably(surroundings::set_up_children(), {"stay"}, child), 0u);
  ASSERT_EQ(wait_for_child(child, 20'000).bytes, "ready\n");
  FreeConsole();
  ASSERT_TRUE(AttachConsole(child_process_id(child)));
  set_console_title("Velmora \xE6\xB5\x8B\xE8\xAF\x95");
  std::array<wchar_t, 256> title{};
  EXPECT_NE(GetConsoleTitleW(title.data(), static_cast<DWORD>(title.size())), 0u);
  EXPECT_EQ(std::wstring(title.data()), L"Velmora \u6D4B\u8BD5");
  FreeConsole();
  AttachConsole(ATTACH_PARENT_PROCESS);
}

// Sleeping may end a clock step early.
TEST_F(WindowsConsoleWindow, WaitsBehindEventsThatEndTheProcess) {
  constexpr std::uint32_t wait_ms = 400;
  constexpr std::int64_t least_ns = 350'000'000;
  install_console_handler([](std::uint32_t) { return true; });
  delay_end_after_close(wait_ms);
  for (const std::uint32_t event : surroundings::console_events()) {
    SCOPED_TRACE(event);
    const std::int64_t start_ns = steady_now_ns();
    surroundings::raise_console_event(event);
    const bool ends_process =
        event == CTRL_CLOSE_EVENT || event == CTRL_LOGOFF_EVENT || event == CTRL_SHUTDOWN_EVENT;
    if (ends_process) {
      EXPECT_GE(steady_now_ns() - start_ns, least_ns);
    }
  }
  delay_end_after_close(0);
}

}  // namespace
}  // namespace velmora
