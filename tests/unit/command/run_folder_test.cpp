#include "command/run_folder.h"

#include "platform/errors.h"
#include "unit/command/support/command_machine.h"

namespace velmora {
namespace {

class RunFolder : public CommandMachine {};

const std::string not_running = "Velmora is not running: start it with velmora start.";

TEST_F(RunFolder, IsOfTheUser) {
  EXPECT_EQ(run_file_path(), run_path);
  EXPECT_EQ(stop_file_path(), stop_path);
  memory::system().environment.clear();
  EXPECT_EQ(run_file_path(), "");
  EXPECT_EQ(stop_file_path(), "");
}

TEST_F(RunFolder, IsMadeAndHeld) {
  HeldFile held;
  EXPECT_FALSE(hold_run_file(held).failed());
  EXPECT_TRUE(held.is_open());
  EXPECT_EQ(file(run_path)->bytes, "");
  EXPECT_TRUE(file(run_path)->is_private);
  EXPECT_TRUE(file(private_folder)->is_private);
  EXPECT_FALSE(write_run_record(held, some_run()).failed());
  EXPECT_EQ(file(run_path)->bytes, format_run_record(some_run()));
  held.close();
  EXPECT_FALSE(file(run_path));
}

TEST_F(RunFolder, IsHeldOnce) {
  hold_some_run();
  HeldFile held;
  const Outcome outcome = hold_run_file(held);
  EXPECT_EQ(outcome.code, CommandCode::already_running);
  EXPECT_EQ(outcome.sentence,
            "Velmora is already running: open its page with velmora open, or end it with velmora stop.");
  EXPECT_FALSE(held.is_open());
  EXPECT_EQ(file(run_path)->bytes, format_run_record(some_run()));
}

TEST_F(RunFolder, ReplacesTheFilesOfARunThatWasKilled) {
  hold_some_run();
  run_file.close();
  memory::File left;
  left.bytes = format_run_record(some_run());
  left.is_private = true;
  memory::system().files[std::string(run_path)] = left;
  memory::system().files[std::string(stop_path)] = left;
  EXPECT_EQ(find_run(0).outcome.sentence, not_running);
  HeldFile held;
  EXPECT_FALSE(hold_run_file(held).failed());
  EXPECT_EQ(file(run_path)->bytes, "");
  EXPECT_FALSE(file(stop_path));
}

TEST_F(RunFolder, SaysWhyItCannotBeWritten) {
  const std::string path(run_path);
  const std::pair<std::uint32_t, std::string> rows[] = {
      {error_disk_full, " cannot be written, because the disk is full: make room, then try again."},
      {error_write_protect,
       " cannot be written, because the disk is read-only: make it writable, then try again."},
      {error_access_denied, " cannot be written: give yourself the right to write there, then try again."},
      {error_gen_failure, " cannot be written (error 31): check its folder, then try again."},
  };
  for (const auto& [error, end] : rows) {
    memory::system().faults["CreateFileW"] = {error};
    HeldFile held;
    Outcome outcome = hold_run_file(held);
    EXPECT_EQ(outcome.code, CommandCode::run_file_not_written);
    EXPECT_EQ(outcome.sentence, path + end);
    EXPECT_FALSE(held.is_open());
    memory::system().faults["CreateDirectoryW"] = {error};
    outcome = hold_run_file(held);
    EXPECT_EQ(outcome.code, CommandCode::run_file_not_written);
    EXPECT_EQ(outcome.sentence, std::string(private_folder) + end);
    memory::system().faults.clear();
    EXPECT_FALSE(hold_run_file(held).failed());
    memory::system().faults["WriteFile"] = {error};
    outcome = write_run_record(held, some_run());
    EXPECT_EQ(outcome.code, CommandCode::run_file_not_written);
    EXPECT_EQ(outcome.sentence, path + end);
    EXPECT_EQ(file(run_path)->bytes, "");
  }
}

TEST_F(RunFolder, IsMissingWithoutAHome) {
  memory::system().environment.clear();
  const std::string sentence =
      "There is no folder for this user: set LOCALAPPDATA on Windows, or HOME elsewhere, to a full path.";
  HeldFile held;
  const Outcome outcome = hold_run_file(held);
  EXPECT_EQ(outcome.code, CommandCode::run_file_not_written);
  EXPECT_EQ(outcome.sentence, sentence);
  const RunState state = find_run(0);
  EXPECT_EQ(state.outcome.code, CommandCode::run_file_unreadable);
  EXPECT_EQ(state.outcome.sentence, sentence);
}

TEST_F(RunFolder, BelongsToSomebodyElse) {
  memory::system().files[std::string(private_folder)].kind = FileKind::directory;
  memory::system().files[std::string(private_folder)].is_foreign = true;
  HeldFile held;
  Outcome outcome = hold_run_file(held);
  EXPECT_EQ(outcome.code, CommandCode::run_file_unreadable);
  EXPECT_EQ(outcome.sentence,
            std::string(private_folder) +
                " belongs to somebody else or others may read it: remove it, then try again.");
  memory::system().files[std::string(private_folder)].is_foreign = false;
  memory::system().files[std::string(run_path)].is_foreign = true;
  outcome = find_run(0).outcome;
  EXPECT_EQ(outcome.code, CommandCode::run_file_unreadable);
  EXPECT_EQ(
      outcome.sentence,
      std::string(run_path) + " belongs to somebody else or others may read it: remove it, then try again.");
}

TEST_F(RunFolder, FindsTheRun) {
  EXPECT_EQ(find_run(0).outcome.code, CommandCode::not_running);
  EXPECT_EQ(find_run(0).outcome.sentence, not_running);
  EXPECT_FALSE(read_run_state().outcome.failed());
  hold_some_run();
  const RunState state = find_run(0);
  EXPECT_FALSE(state.outcome.failed());
  EXPECT_TRUE(state.is_held);
  ASSERT_TRUE(state.run);
  EXPECT_EQ(state.run->token, "secret");
}

TEST_F(RunFolder, CannotBeRead) {
  memory::system().faults["CreateFileW"] = {error_access_denied};
  const Outcome outcome = find_run(0).outcome;
  EXPECT_EQ(outcome.code, CommandCode::run_file_unreadable);
  EXPECT_EQ(outcome.sentence,
            std::string(run_path) + " cannot be read (error 5): remove it, then start Velmora again.");
}

TEST_F(RunFolder, WaitsForAServiceThatStarts) {
  hold_run("");
  memory::system().on_sleep = [&] {
    if (memory::system().sleeps == 3) {
      ASSERT_EQ(write_held_file(run_file, R"({"version":)"), 0u);
    }
    if (memory::system().sleeps == 5) {
      ASSERT_EQ(write_held_file(run_file, format_run_record(some_run())), 0u);
    }
  };
  EXPECT_TRUE(find_run(5000).run);
  EXPECT_EQ(memory::system().sleeps, 5u);
}

TEST_F(RunFolder, WaitsUpToItsLimit) {
  hold_run("");
  EXPECT_EQ(find_run(1000).outcome.code, CommandCode::not_running);
  EXPECT_EQ(find_run(1000).outcome.sentence, "Velmora is still starting: try again in a moment.");
  ASSERT_EQ(write_held_file(run_file, "nonsense"), 0u);
  const std::int64_t begin_ns = memory::system().now_ns;
  const Outcome outcome = find_run(1000).outcome;
  EXPECT_EQ(outcome.code, CommandCode::run_file_unreadable);
  EXPECT_EQ(outcome.sentence,
            std::string(run_path) + " makes no sense: end Velmora in its own window, then start it again.");
  EXPECT_EQ(memory::system().now_ns - begin_ns, 1'000'000'000);
}

TEST_F(RunFolder, SeesARunEndWhileItWaits) {
  hold_run("");
  memory::system().on_sleep = [&] { run_file.close(); };
  EXPECT_EQ(find_run(5000).outcome.sentence, not_running);
}

TEST_F(RunFolder, PassesAStopRequest) {
  hold_some_run();
  const std::string id(some_run_id);
  EXPECT_FALSE(take_stop_request(id));
  EXPECT_FALSE(write_stop_request({id, true}).failed());
  EXPECT_TRUE(file(stop_path)->is_private);
  const auto request = take_stop_request(id);
  ASSERT_TRUE(request);
  EXPECT_TRUE(request->force);
  EXPECT_FALSE(file(stop_path));
  EXPECT_FALSE(take_stop_request(id));
}

TEST_F(RunFolder, RemovesAStopRequestThatIsOfNoUse) {
  hold_some_run();
  const std::string id(some_run_id);
  EXPECT_FALSE(write_stop_request({"0123456789abcdef", true}).failed());
  EXPECT_FALSE(take_stop_request(id));
  EXPECT_FALSE(file(stop_path));
  ASSERT_EQ(write_private_file(stop_path, "nonsense"), 0u);
  EXPECT_FALSE(take_stop_request(id));
  EXPECT_FALSE(file(stop_path));
  ASSERT_EQ(write_private_file(stop_path, format_stop_request({id, false})), 0u);
  memory::system().files[std::string(stop_path)].is_foreign = true;
  EXPECT_FALSE(take_stop_request(id));
}

TEST_F(RunFolder, SaysWhyAStopRequestCannotBeWritten) {
  hold_some_run();
  memory::system().faults["CreateFileW"] = {error_write_protect};
  const Outcome outcome = write_stop_request({std::string(some_run_id), false});
  EXPECT_EQ(outcome.code, CommandCode::run_file_not_written);
  EXPECT_EQ(outcome.sentence,
            std::string(stop_path) +
                " cannot be written, because the disk is read-only: make it writable, then try again.");
}

}  // namespace
}  // namespace velmora
