#include "command/start.h"

#include "platform/errors.h"
#include "unit/command/support/command_machine.h"

namespace velmora {
namespace {

using Words = std::vector<std::string>;

class Start : public CommandMachine {
 protected:
  void SetUp() override {
    CommandMachine::SetUp();
    // A service that shows its banner and ends after one wait.
    on_start_service = [](memory::Child& child) {
      memory::print(child, service_banner);
      child.events.push_back({});
      memory::end(child, 7);
      return 0u;
    };
  }
  static int start(std::vector<std::string_view> arguments = {}) {
    arguments.insert(arguments.begin(), "start");
    return start_command(parse_command_arguments(arguments));
  }
  static const Words& service_arguments() { return memory::system().children.front()->arguments; }
};

TEST_F(Start, RunsTheServiceBesideIt) {
  EXPECT_EQ(start(), 25);
  EXPECT_EQ(memory::system().children.size(), 1u);
  EXPECT_EQ(memory::system().children.front()->program, service_program);
  EXPECT_EQ(service_arguments(), (Words{"--port", "17831", "--web-root", "/opt/velmora/web"}));
  EXPECT_EQ(output(), service_banner);
  EXPECT_EQ(errors(), "The service has ended unexpectedly (code 7): start it again with velmora start.\n");
  EXPECT_FALSE(file(run_path));
  EXPECT_TRUE(memory::system().browser_addresses.empty());
}

TEST_F(Start, HandsOptionsOn) {
  EXPECT_EQ(start({"--verbose", "--port", "18000", "--web-root", "other web", "--what"}), 25);
  EXPECT_EQ(service_arguments(),
            (Words{"--verbose", "--port", "18000", "--web-root", "other web", "--what"}));
}

TEST_F(Start, TakesTheNextPort) {
  answer_at(17831, {{"/api/v1/status", "garbage"}});
  EXPECT_EQ(start({"--verbose"}), 25);
  EXPECT_EQ(service_arguments(), (Words{"--port", "17832", "--web-root", "/opt/velmora/web", "--verbose"}));
}

TEST_F(Start, LeavesABadPortToTheService) {
  EXPECT_EQ(start({"--port", "x"}), 25);
  EXPECT_EQ(service_arguments(), (Words{"--web-root", "/opt/velmora/web", "--port", "x"}));
}

TEST_F(Start, RefusesASecondStart) {
  for (const std::string& text : {std::string(), format_run_record(some_run())}) {
    hold_run(text);
    EXPECT_EQ(start(), 21);
    run_file.close();
  }
  EXPECT_TRUE(memory::system().children.empty());
}

TEST_F(Start, RefusesAPortThatIsTaken) {
  answer_at(17831, {{"/api/v1/status", token_refusal()}});
  EXPECT_EQ(start(), 26);
  EXPECT_EQ(start({"--port", "17831"}), 26);
  EXPECT_TRUE(memory::system().children.empty());
  EXPECT_FALSE(file(run_path));
}

TEST_F(Start, NeedsAPlaceForItsFile) {
  memory::system().faults["CreateFileW"] = {error_disk_full};
  EXPECT_EQ(start(), 24);
  memory::system().environment.clear();
  EXPECT_EQ(start(), 24);
  EXPECT_TRUE(memory::system().children.empty());
}

TEST_F(Start, NeedsTheServiceProgram) {
  memory::system().files.erase(std::string(service_program));
  EXPECT_EQ(start(), 27);
  EXPECT_EQ(errors(), "/opt/velmora/velmora_control_demo is missing: unpack the whole archive again.\n");
  EXPECT_FALSE(file(run_path));
  memory::system().standard_error.clear();
  memory::system().faults["CreateProcessW"] = {error_bad_exe_format};
  EXPECT_EQ(start(), 27);
  EXPECT_EQ(
      errors(),
      "/opt/velmora/velmora_control_demo cannot be started (error 193): unpack the whole archive again.\n");
}

TEST_F(Start, LooksForTheServiceWithItsOwnExtension) {
  memory::system().module_path = "/opt/velmora/velmora.exe";
  EXPECT_EQ(start(), 27);
  EXPECT_EQ(errors(), "/opt/velmora/velmora_control_demo.exe is missing: unpack the whole archive again.\n");
}

TEST_F(Start, NeedsRandomNumbers) {
  memory::system().random_available = false;
  EXPECT_EQ(start(), 27);
  EXPECT_EQ(errors(), "The system gives no random numbers: restart the computer.\n");
  EXPECT_TRUE(memory::system().children.empty());
}

TEST_F(Start, GivesAClosedWindowTimeForACleanEnd) {
  std::optional<std::uint32_t> delay_ms;
  memory::system().on_idle = [&] {
    delay_ms = memory::system().end_delay_ms;
    memory::system().console_handler(2);
  };
  on_start_service = [](memory::Child&) { return 0u; };
  EXPECT_EQ(start(), 0);
  EXPECT_EQ(delay_ms, 4500u);
  // A window that only waits for Enter closes at once.
  EXPECT_EQ(memory::system().end_delay_ms, 0u);
  EXPECT_EQ(memory::system().children.front()->interrupts, 1);
}

constexpr std::string_view rights_line =
    "Velmora needs administrator rights to be added to a device or removed from one, to restart audio,\n"
    "and to start while no sound goes through the effect.\n"
    "Start Velmora as administrator? (y/n) ";
constexpr std::string_view window_lines =
    "This window runs Velmora. Leave it open while you use Velmora.\n"
    "To end Velmora, double-click stop.cmd, press Ctrl+C here, or close this window.\n\n";

TEST_F(Start, OpensThePageInAWindow) {
  answer_at(18000, {});
  answer_at(17831, {{"/api/v1/status", expected_document("{}")}});
  memory::system().standard_input = "n\n\n";
  // The port is free when it is chosen.
  memory::system().ports_of_others.clear();
  EXPECT_EQ(start({"--window", "--verbose"}), 25);
  EXPECT_EQ(output(), std::string(rights_line) + std::string(window_lines) + std::string(service_banner) +
                          "Press Enter to close this window. ");
  EXPECT_EQ(errors(), "The service has ended unexpectedly (code 7): start it again with start.cmd.\n");
  EXPECT_EQ(memory::system().console_title, "Velmora");
  EXPECT_EQ(memory::system().browser_addresses,
            std::vector<std::string>{"http://127.0.0.1:17831/?token=secret"});
  EXPECT_TRUE(memory::system().elevated_starts.empty());
}

TEST_F(Start, NamesTheScriptsInAWindow) {
  answer_at(17831, {{"/api/v1/status", ""}});
  memory::system().ports_of_others.clear();
  memory::system().standard_input = "n\n";
  EXPECT_EQ(start({"--window"}), 25);
  EXPECT_EQ(errors(),
            "The service at http://127.0.0.1:17831/ has ended: start it again with start.cmd.\n"
            "The service has ended unexpectedly (code 7): start it again with start.cmd.\n");
}

TEST_F(Start, OpensNoBrowserWithTheRightsOfAnAdministrator) {
  memory::system().elevated = true;
  answer_at(17831, {{"/api/v1/status", expected_document("{}")}});
  memory::system().ports_of_others.clear();
  EXPECT_EQ(start({"--window"}), 25);
  EXPECT_TRUE(output().starts_with(std::string(window_lines) +
                                   "If no page opens, double-click start.cmd again: it opens the page.\n\n" +
                                   std::string(service_banner)));
  EXPECT_TRUE(memory::system().browser_addresses.empty());
}

TEST_F(Start, StartsAsAdministratorIfAsked) {
  memory::system().standard_input = "y\n";
  answer_at(17831, {{"/api/v1/status", expected_document("{}")}});
  memory::system().on_sleep = [this] {
    if (memory::system().sleeps == 2) hold_run("");
    if (memory::system().sleeps == 4) {
      ASSERT_EQ(write_held_file(run_file, format_run_record(some_run())), 0u);
    }
  };
  EXPECT_EQ(start({"--window", "--control-map", "Local\\x"}), 0);
  EXPECT_EQ(output(),
            std::string(rights_line) + "Velmora starts in another window; this one closes by itself.\n");
  ASSERT_EQ(memory::system().elevated_starts.size(), 1u);
  EXPECT_EQ(memory::system().elevated_starts.front().program, own_program);
  EXPECT_EQ(memory::system().elevated_starts.front().arguments,
            (Words{"start", "--window", "--control-map", "Local\\x"}));
  EXPECT_EQ(memory::system().browser_addresses,
            std::vector<std::string>{"http://127.0.0.1:17831/?token=secret"});
  EXPECT_TRUE(memory::system().children.empty());
}

TEST_F(Start, GivesUpAnAdministratorsStartThatDoesNotCome) {
  memory::system().standard_input = "y\n";
  const std::int64_t begin_ns = memory::system().now_ns;
  EXPECT_EQ(start({"--window"}), 27);
  EXPECT_EQ(memory::system().now_ns - begin_ns, 60'000'000'000);
  EXPECT_EQ(
      errors(),
      "Velmora has not started as administrator, or runs for another account: see its own window, and open "
      "the address that it shows.\n");
  EXPECT_TRUE(output().ends_with("Press Enter to close this window. "));
}

TEST_F(Start, GoesOnWithoutAnAdministrator) {
  memory::system().standard_input = "y\n";
  memory::system().faults["ShellExecuteExW"] = {1223};
  EXPECT_EQ(start({"--window"}), 25);
  EXPECT_NE(output().find("Windows has not started it as administrator. It starts with your own rights.\n" +
                          std::string(window_lines)),
            std::string::npos);
}

TEST_F(Start, OpensThePageOfTheRunningServiceInAWindow) {
  hold_some_run();
  answer_at(17831, {{"/api/v1/status", expected_document("{}")}});
  EXPECT_EQ(start({"--window"}), 0);
  EXPECT_EQ(output(), "Velmora is already running. Its page opens in the browser.\n");
  EXPECT_EQ(memory::system().browser_addresses,
            std::vector<std::string>{"http://127.0.0.1:17831/?token=secret"});
  EXPECT_TRUE(memory::system().children.empty());
}

}  // namespace
}  // namespace velmora
