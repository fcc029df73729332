#include "platform/child_process.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/command_surroundings.h"
#include "platform/environment_surroundings.h"
#include "platform/files.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

constexpr std::uint32_t long_enough_ms = 20'000;
using Kind = ChildEvent::Kind;

// All that a child did until its end, or until nothing came for long enough.
struct Story {
  std::string output;
  std::string error_output;
  Kind last = Kind::nothing;
  std::uint32_t exit_code = 0;
};

Story read_to_end(const ChildProcess& child) {
  Story story;
  for (;;) {
    const ChildEvent event = wait_for_child(child, long_enough_ms);
    story.last = event.kind;
    story.exit_code = event.exit_code;
    EXPECT_EQ(event.bytes.empty(), event.kind == Kind::nothing || event.kind == Kind::ended);
    if (event.kind == Kind::output)
      story.output += event.bytes;
    else if (event.kind == Kind::error_output)
      story.error_output += event.bytes;
    else
      return story;
  }
}

class ChildProcessContract : public surroundings::Arranged {
 protected:
  void SetUp() override {
    Arranged::SetUp();
    program_ = surroundings::set_up_children();
  }

  ChildProcess start(const std::vector<std::string>& arguments) const {
    ChildProcess child;
    EXPECT_EQ(surroundings::start_reliably(program_, arguments, child), 0u);
    EXPECT_TRUE(child.is_open());
    return child;
  }

  // A child that has come as far as to say so.
  ChildProcess start_ready(const std::string& what) const {
    ChildProcess child = start({what});
    const ChildEvent event = wait_for_child(child, long_enough_ms);
    EXPECT_EQ(event.kind, Kind::output);
    EXPECT_EQ(event.bytes, "ready\n");
    return child;
  }

  const std::string& program() const { return program_; }

 private:
  std::string program_;
};

TEST_F(ChildProcessContract, GivesTheChildItsArgumentsUnchanged) {
  const std::vector<std::vector<std::string>> lists{
      {},
      {""},
      {"", "", ""},
      {"plain"},
      {"a b", " c ", "\t"},
      {"say \"yes\"", "\"", "\"\"", "\"a b\""},
      {"\\", "\\\\", "C:\\folder\\", "C:\\a b\\"},
      {"\\\"", "\\\\\"", "a\\\\b \\\\", "\\\\\\\" x"},
      {"a&b", "!x!", "%PATH%", "^", "|", "<>", "(1)", ";,=", "'"},
      {"*", "?", "*.cpp", "~", "$HOME", "`id`"},
      {"\xE9\x9F\xB3\xE9\xA2\x91 \xE8\xAE\xBE\xE5\xA4\x87", "\xF0\x9F\x94\x8A", "\xC3\xA4"},
      {"--token", "0123456789abcdef", "-x", "/x"},
  };
  for (const auto& list : lists) {
    std::vector<std::string> arguments{"arguments"};
    std::string expected;
    for (const std::string& argument : list) {
      arguments.push_back(argument);
      expected += '[' + argument + ']';
    }
    SCOPED_TRACE(expected);
    const Story story = read_to_end(start(arguments));
    EXPECT_EQ(story.output, expected);
    EXPECT_EQ(story.error_output, "");
    EXPECT_EQ(story.last, Kind::ended);
    EXPECT_EQ(story.exit_code, 0u);
  }
}

TEST_F(ChildProcessContract, KeepsTheStreamsApartAndReportsTheExitCode) {
  const struct {
    std::string output;
    std::string error_output;
    std::uint32_t exit_code;
  } rows[] = {{"", "", 0},
              {"one\ntwo\r\n", "", 1},
              {"", "trouble\n", 10},
              {"a", "b", 27},
              {"\xE9\x9F\xB3", "x", 255}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.exit_code);
    const ChildProcess child = start({"print", row.output, row.error_output, std::to_string(row.exit_code)});
    const Story story = read_to_end(child);
    EXPECT_EQ(story.output, row.output);
    EXPECT_EQ(story.error_output, row.error_output);
    EXPECT_EQ(story.last, Kind::ended);
    EXPECT_EQ(story.exit_code, row.exit_code);
  }
}

TEST_F(ChildProcessContract, RepeatsTheEnd) {
  const ChildProcess child = start({"print", "", "", "4"});
  EXPECT_EQ(read_to_end(child).exit_code, 4u);
  for (const std::uint32_t timeout_ms : {0u, 1u, long_enough_ms}) {
    SCOPED_TRACE(timeout_ms);
    const ChildEvent event = wait_for_child(child, timeout_ms);
    EXPECT_EQ(event.kind, Kind::ended);
    EXPECT_EQ(event.bytes, "");
    EXPECT_EQ(event.exit_code, 4u);
  }
}

TEST_F(ChildProcessContract, WaitsInVainForASilentChild) {
  const ChildProcess child = start_ready("stay");
  for (const std::uint32_t timeout_ms : {0u, 1u, 50u}) {
    SCOPED_TRACE(timeout_ms);
    const ChildEvent event = wait_for_child(child, timeout_ms);
    EXPECT_EQ(event.kind, Kind::nothing);
    EXPECT_EQ(event.bytes, "");
  }
  EXPECT_TRUE(surroundings::is_running(child_process_id(child)));
}

TEST_F(ChildProcessContract, GivesTheChildAnEmptyInput) {
  EXPECT_EQ(read_to_end(start({"input"})).output, "end");
}

TEST_F(ChildProcessContract, HandsOnTheEnvironmentAndTheDirectory) {
  surroundings::set_environment(u"VELMORA_CONTRACT_WORD", u"a word = \u97F3");
  EXPECT_EQ(read_to_end(start({"environment", "VELMORA_CONTRACT_WORD"})).output, "a word = \xE9\x9F\xB3");
  surroundings::set_environment(u"VELMORA_CONTRACT_WORD", u"");
  EXPECT_EQ(read_to_end(start({"environment", "VELMORA_CONTRACT_WORD"})).output, "");
  EXPECT_EQ(read_to_end(start({"directory"})).output, surroundings::current_directory());
}

TEST_F(ChildProcessContract, RefusesWhatIsNoProgram) {
  const std::string folder = surroundings::scratch_directory();
  surroundings::put_directory(join_path(folder, "folder"));
  ChildProcess child = start_ready("stay");
  const std::uint32_t former = child_process_id(child);
  const struct {
    std::string program;
    std::uint32_t error;
  } rows[] = {{join_path(folder, "missing"), 2},
              {join_path(join_path(folder, "missing"), "program"), 3},
              {join_path(folder, "folder"), 5}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.program);
    EXPECT_EQ(start_child(row.program, {"stay"}, child), row.error);
  }
  EXPECT_EQ(start_child(program(), {"arguments", std::string("a\0b", 3)}, child), 87u);
  EXPECT_EQ(child_process_id(child), former);
  EXPECT_TRUE(surroundings::is_running(former));
}

TEST_F(ChildProcessContract, EndsAChildAtOnce) {
  const ChildProcess child = start_ready("stay");
  const std::uint32_t id = child_process_id(child);
  EXPECT_TRUE(surroundings::is_running(id));
  EXPECT_TRUE(end_child(child));
  const Story story = read_to_end(child);
  EXPECT_EQ(story.last, Kind::ended);
  EXPECT_EQ(story.exit_code, surroundings::exit_code_of_ended());
  EXPECT_FALSE(surroundings::is_running(id));
  // Once more, after the end.
  EXPECT_TRUE(end_child(child));
  EXPECT_EQ(wait_for_child(child, 0).exit_code, surroundings::exit_code_of_ended());
}

TEST_F(ChildProcessContract, KeepsTheExitCodeOfAChildThatEndedByItself) {
  const ChildProcess child = start({"print", "", "", "6"});
  EXPECT_EQ(read_to_end(child).exit_code, 6u);
  EXPECT_TRUE(end_child(child));
  EXPECT_EQ(wait_for_child(child, 0).exit_code, 6u);
}

TEST_F(ChildProcessContract, EndsTheChildWithItsOwner) {
  ChildProcess child = start_ready("stay");
  const std::uint32_t id = child_process_id(child);
  child.close();
  EXPECT_FALSE(child.is_open());
  EXPECT_FALSE(surroundings::is_running(id));
}

TEST_F(ChildProcessContract, EndsTheFormerChildByAssignment) {
  ChildProcess child = start_ready("stay");
  const std::uint32_t former = child_process_id(child);
  ChildProcess other = start_ready("stay");
  const std::uint32_t kept = child_process_id(other);
  ASSERT_NE(former, kept);
  child = std::move(other);
  EXPECT_FALSE(surroundings::is_running(former));
  EXPECT_TRUE(surroundings::is_running(kept));
  ChildProcess& same = child;
  child = std::move(same);
  EXPECT_TRUE(surroundings::is_running(kept));
  EXPECT_EQ(child_process_id(child), kept);
}

// The second child does it, because the first step of an interrupt is to leave the console.
TEST_F(ChildProcessContract, InterruptsOneProcessAndNoOther) {
  const ChildProcess waiting = start_ready("wait");
  const ChildProcess other = start_ready("stay");
  const ChildProcess helper = start({"interrupt", std::to_string(child_process_id(waiting))});
  EXPECT_EQ(read_to_end(helper).exit_code, 0u);
  const Story story = read_to_end(waiting);
  EXPECT_EQ(story.output, "interrupted\n");
  EXPECT_EQ(story.last, Kind::ended);
  EXPECT_EQ(story.exit_code, 7u);
  EXPECT_TRUE(surroundings::is_running(child_process_id(other)));
}

TEST_F(ChildProcessContract, ReportsAnInterruptOfNobody) {
  for (const char* id : {"0", "2147483644", "2147483648", "4294967295"}) {
    SCOPED_TRACE(id);
    EXPECT_EQ(read_to_end(start({"interrupt", id})).exit_code, 87u);
  }
}

}  // namespace
}  // namespace velmora
