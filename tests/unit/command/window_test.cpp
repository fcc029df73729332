#include "command/window.h"

#include "unit/command/support/command_machine.h"

namespace velmora {
namespace {

class Window : public CommandMachine {};

TEST_F(Window, SaysWhatItIs) {
  explain_start_window();
  EXPECT_EQ(memory::system().console_title, "Velmora");
  EXPECT_EQ(output(),
            "This window runs Velmora. Leave it open while you use Velmora.\n"
            "To end Velmora, double-click stop.cmd, press Ctrl+C here, or close this window.\n\n");
  memory::system().standard_output.clear();
  explain_stop_window();
  EXPECT_EQ(memory::system().console_title, "End Velmora");
  EXPECT_EQ(output(), "Ending Velmora ...\n");
}

TEST_F(Window, TakesOnlyAYesForAYes) {
  for (const std::string answer : {"y", "Y", "yes", " YES ", "y\r"}) {
    memory::system().standard_input = answer + "\nmore\n";
    EXPECT_TRUE(ask("Really?")) << answer;
    EXPECT_EQ(memory::system().standard_input, "more\n");
  }
  for (const std::string answer : {"", "n", "no", "yesterday", "j"}) {
    memory::system().standard_input = answer + "\n";
    EXPECT_FALSE(ask("Really?")) << answer;
  }
}

TEST_F(Window, TakesTheEndOfTheInputForANo) {
  EXPECT_FALSE(ask("Really?"));
  EXPECT_EQ(output(), "Really? (y/n) \n");
}

TEST_F(Window, WaitsForOneLine) {
  memory::system().standard_input = "\nmore\n";
  wait_for_enter();
  EXPECT_EQ(memory::system().standard_input, "more\n");
  EXPECT_EQ(output(), "Press Enter to close this window. ");
}

}  // namespace
}  // namespace velmora
