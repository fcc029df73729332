#include "command/stop.h"

#include "command/exit_codes.h"
#include "command/run_folder.h"
#include "platform/errors.h"
#include "unit/command/support/command_machine.h"

namespace velmora {
namespace {

class Stop : public CommandMachine {
 protected:
  // The `start` of the run ends after so many pauses, once it has taken such a request.
  void end_after(std::uint64_t pauses, bool needs_force = false) {
    memory::system().on_sleep = [this, pauses, needs_force] {
      if (memory::system().sleeps < pauses) return;
      const auto request = take_stop_request(std::string(some_run_id));
      if (request && (request->force || !needs_force)) run_file.close();
    };
  }
  static CommandArguments with(std::vector<std::string_view> flags) {
    flags.insert(flags.begin(), "stop");
    return parse_command_arguments(flags);
  }
};

constexpr std::string_view forced_line =
    "Velmora was ended at once. If you were signed in, you stay signed in at the account service until that\n"
    "session expires.\n";

TEST_F(Stop, EndsTheRun) {
  hold_some_run();
  end_after(3);
  EXPECT_EQ(stop_command(with({})), 0);
  EXPECT_EQ(output(), "Velmora has ended.\n");
  EXPECT_EQ(errors(), "");
  EXPECT_FALSE(file(stop_path));
}

TEST_F(Stop, NeedsARun) {
  EXPECT_EQ(stop_command(with({})), 20);
  EXPECT_EQ(stop_command(with({"--force"})), 20);
  EXPECT_EQ(errors(),
            "Velmora is not running: start it with velmora start.\n"
            "Velmora is not running: start it with velmora start.\n");
  EXPECT_FALSE(file(stop_path));
}

TEST_F(Stop, SaysThatAClientHoldsTheService) {
  hold_some_run();
  const std::int64_t begin_ns = memory::system().now_ns;
  EXPECT_EQ(stop_command(with({})), 22);
  EXPECT_EQ(memory::system().now_ns - begin_ns, 5'000'000'000);
  EXPECT_EQ(output(), "");
  EXPECT_EQ(
      errors(),
      "Velmora has not ended within 5 seconds: a browser or another program holds it, or the account service "
      "does not answer. It ends as soon as they are done. To end it at once, run velmora stop --force. "
      "If you are signed in, you then stay signed in at the account service until that session expires.\n");
  EXPECT_EQ(file(stop_path)->bytes, format_stop_request({std::string(some_run_id), false}));
}

TEST_F(Stop, EndsAtOnceByForce) {
  hold_some_run();
  end_after(1, true);
  EXPECT_EQ(stop_command(with({"--force"})), 0);
  EXPECT_EQ(output(), forced_line);
}

TEST_F(Stop, CannotForceAStartThatHangs) {
  hold_some_run();
  EXPECT_EQ(stop_command(with({"--force"})), 22);
  EXPECT_EQ(errors(), "Velmora cannot be ended: close the window in which it runs.\n");
}

TEST_F(Stop, SeesAnotherRunInItsPlace) {
  hold_some_run();
  memory::system().on_sleep = [this] {
    RunRecord next = some_run();
    next.run_id = "0000000000000000";
    ASSERT_EQ(write_held_file(run_file, format_run_record(next)), 0u);
  };
  EXPECT_EQ(stop_command(with({})), 0);
}

TEST_F(Stop, WaitsWhileTheFileCannotBeRead) {
  hold_some_run();
  end_after(3);
  // The first read, the write of the request, then two reads.
  memory::system().faults["CreateFileW"] = {0, 0, error_access_denied, error_access_denied};
  EXPECT_EQ(stop_command(with({})), 0);
}

TEST_F(Stop, ReportsARequestThatCannotBeWritten) {
  hold_some_run();
  for (const std::string_view flag : {"--window", "--force"}) {
    memory::system().faults["WriteFile"] = {error_disk_full};
    EXPECT_EQ(stop_command(with({flag})), 24);
  }
  EXPECT_FALSE(file(stop_path));
}

TEST_F(Stop, AsksInAWindow) {
  hold_some_run();
  end_after(1, true);
  memory::system().standard_input = "y\n";
  EXPECT_EQ(stop_command(with({"--window"})), 0);
  EXPECT_EQ(memory::system().console_title, "End Velmora");
  EXPECT_EQ(
      output(),
      "Ending Velmora ...\n"
      "Velmora has not ended within 5 seconds: a browser or another program holds it, "
      "or the account service\n"
      "does not answer. It ends as soon as they are done.\n"
      "If you end it at once while you are signed in, you stay signed in at the account service until that\n"
      "session expires.\nEnd it at once? (y/n) " +
          std::string(forced_line));
}

TEST_F(Stop, TakesANoInAWindow) {
  hold_some_run();
  memory::system().standard_input = "n\n\n";
  EXPECT_EQ(stop_command(with({"--window"})), 22);
  EXPECT_TRUE(output().ends_with("End it at once? (y/n) Press Enter to close this window. "));
  EXPECT_EQ(errors(), "Velmora still runs: it ends as soon as its last client is done.\n");
  EXPECT_EQ(memory::system().standard_input, "");
}

TEST_F(Stop, KeepsAWindowOpenAfterAFailureOnly) {
  EXPECT_EQ(stop_command(with({"--window"})), 20);
  EXPECT_EQ(output(), "Ending Velmora ...\nPress Enter to close this window. ");
  EXPECT_EQ(errors(), "Velmora is not running: start it with start.cmd.\n");
  memory::system().standard_output.clear();
  hold_some_run();
  end_after(1);
  EXPECT_EQ(stop_command(with({"--window"})), 0);
  EXPECT_EQ(output(), "Ending Velmora ...\nVelmora has ended.\n");
}

}  // namespace
}  // namespace velmora
