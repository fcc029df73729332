#include "command/arguments.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

using Arguments = std::vector<std::string_view>;
using Options = std::vector<std::string>;

TEST(CommandArguments, NameEachCommand) {
  const std::pair<Arguments, CommandName> rows[] = {
      {{}, CommandName::none},
      {{"help"}, CommandName::help},
      {{"--help"}, CommandName::help},
      {{"-h"}, CommandName::help},
      {{"--version"}, CommandName::version},
      {{"start"}, CommandName::start},
      {{"stop"}, CommandName::stop},
      {{"status"}, CommandName::status},
      {{"open"}, CommandName::open},
      {{"interrupt", "7"}, CommandName::interrupt},
  };
  for (const auto& [arguments, command] : rows) {
    const CommandArguments parsed = parse_command_arguments(arguments);
    EXPECT_EQ(parsed.command, command);
    EXPECT_EQ(parsed.refusal, "");
  }
}

TEST(CommandArguments, AskForHelpAboutACommand) {
  const std::pair<Arguments, CommandName> rows[] = {
      {{"--help"}, CommandName::none},
      {{"help"}, CommandName::none},
      {{"help", "--help"}, CommandName::none},
      {{"help", "start"}, CommandName::start},
      {{"help", "stop"}, CommandName::stop},
      {{"start", "--help"}, CommandName::start},
      {{"start", "--port", "18000", "-h"}, CommandName::start},
      {{"stop", "--force", "--help"}, CommandName::stop},
      {{"status", "--help"}, CommandName::status},
      {{"open", "--help"}, CommandName::open},
      {{"interrupt", "--help"}, CommandName::interrupt},
      {{"interrupt", "7", "-h"}, CommandName::interrupt},
  };
  for (const auto& [arguments, command] : rows) {
    const CommandArguments parsed = parse_command_arguments(arguments);
    EXPECT_EQ(parsed.command, CommandName::help);
    EXPECT_EQ(parsed.help_for, command);
  }
}

TEST(CommandArguments, HoldTheFlagsOfACommand) {
  EXPECT_TRUE(parse_command_arguments({"stop", "--force"}).force);
  EXPECT_TRUE(parse_command_arguments({"stop", "--window"}).window);
  EXPECT_TRUE(parse_command_arguments({"status", "--json"}).json);
  EXPECT_TRUE(parse_command_arguments({"start", "--window"}).window);
  const CommandArguments plain = parse_command_arguments({"stop"});
  EXPECT_FALSE(plain.force || plain.window || plain.json);
}

TEST(CommandArguments, HandOnTheOptionsOfTheService) {
  const CommandArguments parsed =
      parse_command_arguments({"start", "--verbose", "--window", "--web-root", "--window", "--port", "--help",
                               "--token", "-h", "--what", "", "--control-map"});
  EXPECT_EQ(parsed.command, CommandName::start);
  EXPECT_TRUE(parsed.window);
  EXPECT_EQ(parsed.service_options, (Options{"--verbose", "--web-root", "--window", "--port", "--help",
                                             "--token", "-h", "--what", "", "--control-map"}));
  EXPECT_FALSE(parse_command_arguments({"start", "--preset-directory", "--window"}).window);
}

TEST(CommandArguments, HoldAProcessId) {
  EXPECT_EQ(parse_command_arguments({"interrupt", "4294967295"}).process_id, 4294967295u);
}

TEST(CommandArguments, AreRefusedByOneSentence) {
  const std::pair<Arguments, std::string_view> rows[] = {
      {{"begin"}, "There is no command \"begin\": see velmora --help."},
      {{""}, "There is no command \"\": see velmora --help."},
      {{"--verbose"}, "There is no command \"--verbose\": see velmora --help."},
      {{"--version", "start"}, "The option --version takes nothing else: see velmora --help."},
      {{"stop", "--json"}, "The command stop has no option \"--json\": see velmora stop --help."},
      {{"stop", "now"}, "The command stop has no option \"now\": see velmora stop --help."},
      {{"status", "--force"}, "The command status has no option \"--force\": see velmora status --help."},
      {{"open", "--window"}, "The command open has no option \"--window\": see velmora open --help."},
      {{"help", "all"}, "There is no help about \"all\": see velmora --help."},
      {{"help", "start", "stop"}, "There is no help about \"start\": see velmora --help."},
      {{"interrupt"}, "Give the process id of the service: velmora interrupt 1234."},
      {{"interrupt", "0"}, "Give the process id of the service: velmora interrupt 1234."},
      {{"interrupt", "-1"}, "Give the process id of the service: velmora interrupt 1234."},
      {{"interrupt", "1x"}, "Give the process id of the service: velmora interrupt 1234."},
      {{"interrupt", "4294967296"}, "Give the process id of the service: velmora interrupt 1234."},
      {{"interrupt", "1", "2"}, "Give the process id of the service: velmora interrupt 1234."},
  };
  for (const auto& [arguments, sentence] : rows) {
    EXPECT_EQ(parse_command_arguments(arguments).refusal, sentence);
  }
}

TEST(ServiceOption, IsTheLastValueOfThatName) {
  const Options options = {"--port", "1", "--verbose", "--token", "--port", "--port", "2", "--web-root"};
  EXPECT_EQ(service_option(options, "--port"), "2");
  EXPECT_EQ(service_option(options, "--token"), "--port");
  EXPECT_EQ(service_option(options, "--web-root"), std::nullopt);
  EXPECT_EQ(service_option(options, "--verbose"), std::nullopt);
  EXPECT_EQ(service_option({}, "--port"), std::nullopt);
}

}  // namespace
}  // namespace velmora
