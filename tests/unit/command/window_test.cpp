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

TEST_F(Window, NamesScriptsInPlaceOfCommands) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"It is not running: start it with velmora start.", "It is not running: start it with start.cmd."},
      {"It runs: open its page with velmora open, or end it with velmora stop.",
       "It runs: open its page with start.cmd, or end it with stop.cmd."},
      {"It is held: close that page, or run velmora stop --force.",
       "It is held: close that page, or double-click stop.cmd."},
      {"It answers: end it, then run velmora start.", "It answers: end it, then double-click start.cmd."},
      {"It makes no sense: end Velmora with velmora stop, then start it again.",
       "It makes no sense: end Velmora with stop.cmd, then start it again."},
      {"All ports: choose another one with velmora start --port 18000.",
       "All ports: choose another one with start.cmd --port 18000."},
      {"C:\\my velmora start\\velmora.exe is missing: unpack the whole archive again.",
       "C:\\my velmora start\\velmora.exe is missing: unpack the whole archive again."},
      {"No remedy, and no velmora start.", "No remedy, and no velmora start."},
      {"", ""},
  };
  for (const auto& [sentence, expected] : rows) EXPECT_EQ(name_scripts(sentence), expected);
}

TEST_F(Window, WaitsForOneLine) {
  memory::system().standard_input = "\nmore\n";
  wait_for_enter();
  EXPECT_EQ(memory::system().standard_input, "more\n");
  EXPECT_EQ(output(), "Press Enter to close this window. ");
}

}  // namespace
}  // namespace velmora
