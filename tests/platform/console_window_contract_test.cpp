#include "platform/console_window.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/command_surroundings.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class ConsoleWindowContract : public surroundings::Arranged {};

std::vector<std::string> read_lines() {
  std::vector<std::string> lines;
  std::string line = "former";
  while (read_standard_input_line(line)) lines.push_back(line);
  EXPECT_EQ(line, "");
  return lines;
}

TEST_F(ConsoleWindowContract, ReadsLinesWithoutTheirEnds) {
  const struct {
    std::string input;
    std::vector<std::string> lines;
  } rows[] = {
      {"", {}},
      {"\n", {""}},
      {"\r\n", {""}},
      {"y\n", {"y"}},
      {"y\r\n", {"y"}},
      {"y", {"y"}},
      {"one\ntwo\r\n\nfour", {"one", "two", "", "four"}},
      {" a b \n", {" a b "}},
      {"a\rb\n", {"a\rb"}},
      {"\xE6\x98\xAF\n\xE5\x90\xA6\n", {"\xE6\x98\xAF", "\xE5\x90\xA6"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.input);
    const surroundings::StandardInput input = surroundings::put_standard_input(row.input);
    EXPECT_EQ(read_lines(), row.lines);
  }
}

TEST_F(ConsoleWindowContract, DropsWhatIsBeyondTheLimitOfALine) {
  for (const std::size_t size : {1023u, 1024u, 1025u, 5000u}) {
    SCOPED_TRACE(size);
    const surroundings::StandardInput input =
        surroundings::put_standard_input(std::string(size, 'x') + "\r\nnext\n");
    std::string line;
    ASSERT_TRUE(read_standard_input_line(line));
    EXPECT_EQ(line.size(), std::min<std::size_t>(size, 1024));
    ASSERT_TRUE(read_standard_input_line(line));
    EXPECT_EQ(line, "next");
    EXPECT_FALSE(read_standard_input_line(line));
  }
}

// Whatever the system makes of it, the streams stay as they are.
TEST_F(ConsoleWindowContract, TakesATitle) {
  const surroundings::StandardInput input = surroundings::put_standard_input("y\n");
  set_console_title("Velmora \xE6\xB5\x8B\xE8\xAF\x95");
  set_console_title("");
  EXPECT_EQ(read_lines(), std::vector<std::string>{"y"});
}

}  // namespace
}  // namespace velmora
