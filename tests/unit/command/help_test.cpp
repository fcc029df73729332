#include "command/help.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

const CommandName all_commands[] = {CommandName::none,   CommandName::start, CommandName::stop,
                                    CommandName::status, CommandName::open,  CommandName::interrupt};

TEST(Help, FitsIntoAWindow) {
  for (const CommandName command : all_commands) {
    std::string_view text = help_text(command);
    EXPECT_TRUE(text.ends_with('\n'));
    while (!text.empty()) {
      const std::size_t end = text.find('\n');
      EXPECT_LE(end, 110u) << text.substr(0, end);
      text.remove_prefix(end + 1);
    }
  }
}

TEST(Help, ShowsEachCommandByExample) {
  const std::string_view overview = help_text(CommandName::none);
  const std::pair<CommandName, std::string_view> rows[] = {{CommandName::start, "  velmora start"},
                                                           {CommandName::stop, "  velmora stop"},
                                                           {CommandName::status, "  velmora status"},
                                                           {CommandName::open, "  velmora open"}};
  for (const auto& [command, example] : rows) {
    EXPECT_NE(overview.find(example), std::string_view::npos) << example;
    EXPECT_NE(help_text(command).find(example), std::string_view::npos) << example;
    EXPECT_NE(help_text(command), overview);
  }
  EXPECT_NE(help_text(CommandName::interrupt).find("  velmora interrupt"), std::string_view::npos);
}

TEST(Help, ListsEachExitCode) {
  for (const std::string_view code : {"   0  ", "   2  ", "  20  ", "  21  ", "  22  ", "  23  ", "  24  ",
                                      "  25  ", "  26  ", "  27  ", "  28  ", "  29  ", "  30  "}) {
    EXPECT_NE(help_text(CommandName::none).find(code), std::string_view::npos) << code;
  }
}

}  // namespace
}  // namespace velmora
