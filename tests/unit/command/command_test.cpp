#include "command/command.h"

#include "command/help.h"
#include "platform/errors.h"
#include "unit/command/support/command_machine.h"

namespace velmora {
namespace {

class Command : public CommandMachine {};

TEST_F(Command, ShowsHelp) {
  EXPECT_EQ(run_command({"--help"}), 0);
  EXPECT_EQ(output(), help_text(CommandName::none));
  memory::system().standard_output.clear();
  EXPECT_EQ(run_command({"stop", "--help"}), 0);
  EXPECT_EQ(output(), help_text(CommandName::stop));
  EXPECT_EQ(errors(), "");
}

TEST_F(Command, ShowsHelpAsAFailureWithoutACommand) {
  EXPECT_EQ(run_command({}), 2);
  EXPECT_EQ(output(), "");
  EXPECT_EQ(errors(), help_text(CommandName::none));
}

TEST_F(Command, ShowsTheVersion) {
  EXPECT_EQ(run_command({"--version"}), 0);
  EXPECT_EQ(output(), "velmora 1.2.0\n");
}

TEST_F(Command, RefusesABadCommandLine) {
  EXPECT_EQ(run_command({"begin"}), 2);
  EXPECT_EQ(errors(), "There is no command \"begin\": see velmora --help.\n");
}

TEST_F(Command, RunsEachCommand) {
  for (const std::string_view command : {"status", "open", "stop"}) {
    memory::system().standard_error.clear();
    EXPECT_EQ(run_command({command}), 20) << command;
    EXPECT_EQ(errors(), "Velmora is not running: start it with velmora start.\n");
  }
  on_start_service = [](memory::Child& child) {
    memory::end(child, 2);
    return 0u;
  };
  EXPECT_EQ(run_command({"start", "--what"}), 2);
}

TEST_F(Command, ShowsTheStatus) {
  hold_some_run();
  answer_at(17831, {{"/api/v1/status", expected_document(some_status)},
                    {"/api/v1/render/effects/eq", expected_document(R"({"bypass":true,"bands":[]})")},
                    {"/api/v1/devices", expected_document(R"({"render":[]})")}});
  EXPECT_EQ(run_command({"status"}), 0);
  EXPECT_TRUE(output().starts_with("Velmora 1.2.0 at http://127.0.0.1:17831/\n"));
  memory::system().standard_output.clear();
  EXPECT_EQ(run_command({"status", "--json"}), 0);
  EXPECT_TRUE(output().starts_with("{"));
}

TEST_F(Command, InterruptsAProcess) {
  EXPECT_EQ(run_command({"interrupt", "4321"}), 20);
  EXPECT_EQ(errors(), "There is no process 4321: to end Velmora, run velmora stop.\n");
  EXPECT_EQ(calls_of("GenerateConsoleCtrlEvent 4321"), 1);
  ChildProcess child;
  ASSERT_EQ(start_child(service_program, {}, child), 0u);
  EXPECT_EQ(run_command({"interrupt", std::to_string(child_process_id(child))}), 0);
  EXPECT_EQ(memory::system().children.front()->interrupts, 1);
}

TEST_F(Command, CannotInterruptTheProcessOfAnother) {
  memory::system().faults["GenerateConsoleCtrlEvent"] = {error_access_denied, error_gen_failure};
  EXPECT_EQ(run_command({"interrupt", "4321"}), 2);
  EXPECT_EQ(run_command({"interrupt", "4322"}), 2);
  EXPECT_EQ(errors(),
            "The process 4321 belongs to another user or has more rights: end it in its own window.\n"
            "The process 4322 cannot be interrupted (error 31): end it in its own window.\n");
}

TEST_F(Command, FailsIfItsOutputIsNotWritten) {
  hold_some_run();
  answer_at(17831, {{"/api/v1/status", expected_document(some_status)},
                    {"/api/v1/render/effects/eq", expected_document(R"({"bypass":true,"bands":[]})")},
                    {"/api/v1/devices", expected_document(R"({"render":[]})")}});
  const std::vector<std::vector<std::string_view>> rows = {
      {"--help"}, {"status", "--help"}, {"--version"}, {"status"}, {"status", "--json"}};
  for (const auto& arguments : rows) {
    memory::system().standard_error.clear();
    memory::system().faults["stdout"] = {error_disk_full};
    EXPECT_EQ(run_command(arguments), 30);
    EXPECT_EQ(
        errors(),
        "Not everything could be written to standard output: make room on the disk, or keep the program "
        "that reads it open.\n");
  }
}

TEST_F(Command, NeedsTheNetwork) {
  memory::system().faults["WSAStartup"] = {wsasyscallfailure};
  EXPECT_EQ(run_command({"status"}), 25);
  EXPECT_EQ(errors(), "The network of this computer cannot be used: restart it.\n");
}

}  // namespace
}  // namespace velmora
