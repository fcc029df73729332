// What only real processes show: full pipes, the children of children, and the end of a parent.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/child_process.h"
#include "platform/clock.h"
#include "platform/command_surroundings.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

constexpr std::uint32_t long_enough_ms = 20'000;
using Kind = ChildEvent::Kind;

class NativeChildProcess : public surroundings::Arranged {
 protected:
  static ChildProcess start(const std::vector<std::string>& arguments) {
    ChildProcess child;
    EXPECT_EQ(surroundings::start_reliably(surroundings::set_up_children(), arguments, child), 0u);
    return child;
  }
};

std::uint32_t id_in(const std::string& text) {
  return static_cast<std::uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
}

bool ends_soon(std::uint32_t process_id) {
  for (std::uint32_t waited_ms = 0; waited_ms < long_enough_ms; waited_ms += 5) {
    if (!surroundings::is_running(process_id)) return true;
    sleep_ms(5);
  }
  return false;
}

TEST_F(NativeChildProcess, PassesOnMoreThanThePipesHold) {
  constexpr std::size_t bytes = 1 << 20;
  const ChildProcess child = start({"flood", std::to_string(bytes)});
  std::string output;
  std::string error_output;
  ChildEvent event;
  do {
    event = wait_for_child(child, long_enough_ms);
    ASSERT_NE(event.kind, Kind::nothing);
    if (event.kind == Kind::output) output += event.bytes;
    if (event.kind == Kind::error_output) error_output += event.bytes;
  } while (event.kind != Kind::ended);
  EXPECT_TRUE(output == std::string(bytes, 'o')) << output.size();
  EXPECT_TRUE(error_output == std::string(bytes, 'e')) << error_output.size();
}

// The output that is in the pipes at the end is not lost, however late it is read.
TEST_F(NativeChildProcess, GivesTheOutputOfAChildThatHasEndedLongAgo) {
  const ChildProcess child = start({"print", "last words", "and a complaint", "3"});
  ASSERT_TRUE(ends_soon(child_process_id(child)));
  EXPECT_EQ(wait_for_child(child, 0).bytes, "last words");
  EXPECT_EQ(wait_for_child(child, 0).bytes, "and a complaint");
  const ChildEvent end = wait_for_child(child, 0);
  EXPECT_EQ(end.kind, Kind::ended);
  EXPECT_EQ(end.exit_code, 3u);
}

// The grandchild keeps the pipes open, outlives the child's end and the closing of its owner.
TEST_F(NativeChildProcess, DoesNotWaitForTheChildrenOfTheChild) {
  ChildProcess child = start({"leave"});
  std::string output;
  ChildEvent event;
  do {
    event = wait_for_child(child, long_enough_ms);
    ASSERT_NE(event.kind, Kind::nothing);
    output += event.bytes;
  } while (event.kind != Kind::ended);
  EXPECT_EQ(event.exit_code, 5u);
  const std::size_t start_of_id = output.starts_with("ready\n") ? 6 : 0;
  const std::uint32_t heir = id_in(output.substr(start_of_id));
  ASSERT_NE(heir, 0u);
  EXPECT_TRUE(surroundings::is_running(heir));
  child.close();
  EXPECT_TRUE(surroundings::is_running(heir));
  surroundings::end_process(heir);
}

TEST_F(NativeChildProcess, EndsWithAParentThatIsKilled) {
  const ChildProcess parent = start({"keep"});
  const std::uint32_t id = id_in(wait_for_child(parent, long_enough_ms).bytes);
  ASSERT_NE(id, 0u);
  EXPECT_TRUE(surroundings::is_running(id));
  EXPECT_TRUE(end_child(parent));
  EXPECT_TRUE(ends_soon(id));
}

}  // namespace
}  // namespace velmora
