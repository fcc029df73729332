#include "service/options.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

using Action = ParsedCommandLine::Action;
using Arguments = std::vector<std::string_view>;

constexpr std::string_view usage =
    "Usage: velmora_control_demo [--port N] [--web-root PATH] [--token DEV_TOKEN] [--control-map "
    "Local\\NAME|Global\\NAME] [--capture-directory PATH] [--preset-directory PATH] [--account-service URL] "
    "[--open-browser] [--verbose] [--self-test]\n";
constexpr std::string_view invalid_port = "Invalid port\n";
constexpr std::string_view short_token = "A supplied development token must contain at least 32 characters\n";
constexpr std::string_view token_of_31 = "0123456789012345678901234567890";
constexpr std::string_view token_of_32 = "01234567890123456789012345678901";

TEST(CommandLine, HasItsDefaults) {
  const ParsedCommandLine parsed = parse_command_line({});
  EXPECT_EQ(parsed.action, Action::serve);
  EXPECT_EQ(parsed.refusal, "");
  EXPECT_EQ(parsed.options.port, 17831);
  EXPECT_EQ(parsed.options.web_root, "D:/proj/velmora/web");
  EXPECT_FALSE(parsed.options.token);
  EXPECT_EQ(parsed.options.control_map, "Global\\VelmoraControlV1");
  EXPECT_EQ(parsed.options.capture_directory, "");
  EXPECT_EQ(parsed.options.preset_directory, "");
  EXPECT_FALSE(parsed.options.verbose);
  EXPECT_FALSE(parsed.options.open_browser);
  EXPECT_EQ(parsed.options.account_service, "");
}

TEST(CommandLine, AcceptsEveryOption) {
  const ParsedCommandLine parsed =
      parse_command_line({"--port", "80", "--web-root", "w", "--token", token_of_32, "--control-map",
                          "anything at all", "--capture-directory", "c", "--preset-directory", "p",
                          "--verbose", "--open-browser", "--account-service", "http://a"});
  EXPECT_EQ(parsed.action, Action::serve);
  EXPECT_EQ(parsed.refusal, "");
  EXPECT_EQ(parsed.options.port, 80);
  EXPECT_EQ(parsed.options.web_root, "w");
  EXPECT_EQ(parsed.options.token, token_of_32);
  EXPECT_EQ(parsed.options.control_map, "anything at all");
  EXPECT_EQ(parsed.options.capture_directory, "c");
  EXPECT_EQ(parsed.options.preset_directory, "p");
  EXPECT_TRUE(parsed.options.verbose);
  EXPECT_TRUE(parsed.options.open_browser);
  EXPECT_EQ(parsed.options.account_service, "http://a");
}

TEST(CommandLine, AcceptsPortsFrom1To65535) {
  const struct {
    std::string_view text;
    std::uint16_t port;
  } rows[] = {{"1", 1}, {"65535", 65535}, {"0080", 80}, {"0000000000065535", 65535}};
  for (const auto& row : rows) {
    const ParsedCommandLine parsed = parse_command_line({"--port", row.text});
    EXPECT_EQ(parsed.action, Action::serve) << row.text;
    EXPECT_EQ(parsed.options.port, row.port);
  }
}

TEST(CommandLine, RefusesEveryOtherPort) {
  for (const std::string_view text :
       {"0", "65536", "+80", "-80", "80x", "x", "", " 80", "80 ", "0x50", "8.0", "65536000", "4294967295",
        "4294967296", "4294967376", "99999999999999999999", "--verbose"}) {
    const ParsedCommandLine parsed = parse_command_line({"--port", text});
    EXPECT_EQ(parsed.action, Action::refuse) << text;
    EXPECT_EQ(parsed.refusal, invalid_port);
  }
}

TEST(CommandLine, AcceptsTokensOf32BytesAndMore) {
  const std::string long_token(5000, '\xFF');
  EXPECT_EQ(parse_command_line({"--token", token_of_32}).options.token, token_of_32);
  EXPECT_EQ(parse_command_line({"--token", long_token}).options.token, long_token);
  const std::string blanks(32, ' ');
  EXPECT_EQ(parse_command_line({"--token", blanks}).options.token, blanks);
  for (const std::string_view text : {token_of_31, std::string_view("")}) {
    const ParsedCommandLine parsed = parse_command_line({"--token", text});
    EXPECT_EQ(parsed.action, Action::refuse);
    EXPECT_EQ(parsed.refusal, short_token);
  }
}

TEST(CommandLine, RefusesAnOptionWithoutItsValue) {
  for (const std::string_view option : {"--port", "--web-root", "--token", "--control-map",
                                        "--capture-directory", "--preset-directory", "--account-service"}) {
    for (const Arguments& arguments : {Arguments{option}, Arguments{"--verbose", option}}) {
      const ParsedCommandLine parsed = parse_command_line(arguments);
      EXPECT_EQ(parsed.action, Action::refuse) << option;
      EXPECT_EQ(parsed.refusal, usage);
    }
  }
}

TEST(CommandLine, RefusesUnknownOptions) {
  for (const std::string_view argument : {"", "x", "-v", "--Verbose", "--verbose ", "--verbos", "--port=80",
                                          "--help", "-", "--", "--self-test=1", "--open-browsers"}) {
    for (const Arguments& arguments :
         {Arguments{argument}, Arguments{argument, "80"}, Arguments{"--verbose", argument}}) {
      const ParsedCommandLine parsed = parse_command_line(arguments);
      EXPECT_EQ(parsed.action, Action::refuse) << argument;
      EXPECT_EQ(parsed.refusal, usage);
    }
  }
}

TEST(CommandLine, AcceptsAnyTextAsAValue) {
  const ParsedCommandLine parsed = parse_command_line({"--web-root", "--self-test", "--control-map", ""});
  EXPECT_EQ(parsed.action, Action::serve);
  EXPECT_EQ(parsed.options.web_root, "--self-test");
  EXPECT_EQ(parsed.options.control_map, "");
}

TEST(CommandLine, KeepsTheLastOfTwoValues) {
  const ParsedCommandLine parsed = parse_command_line(
      {"--port", "1", "--web-root", "a", "--port", "2", "--web-root", "b", "--verbose", "--verbose"});
  EXPECT_EQ(parsed.options.port, 2);
  EXPECT_EQ(parsed.options.web_root, "b");
  EXPECT_TRUE(parsed.options.verbose);
}

TEST(CommandLine, StopsAtTheFirstFailureOrTheSelfTest) {
  const struct {
    Arguments arguments;
    Action action;
    std::string_view refusal;
  } rows[] = {
      {{"--self-test"}, Action::self_test, ""},
      {{"--self-test", "unknown"}, Action::self_test, ""},
      {{"--self-test", "--port", "0"}, Action::self_test, ""},
      {{"--verbose", "--port", "1", "--self-test"}, Action::self_test, ""},
      {{"unknown", "--self-test"}, Action::refuse, usage},
      {{"--port", "0", "--self-test"}, Action::refuse, invalid_port},
      {{"--token", "x", "--self-test"}, Action::refuse, short_token},
      {{"--port", "--self-test"}, Action::refuse, invalid_port},
      {{"--port", "0", "unknown"}, Action::refuse, invalid_port},
      {{"--token", "x", "--port", "0"}, Action::refuse, short_token},
      {{"--port", "0", "--port", "1"}, Action::refuse, invalid_port},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.arguments));
    const ParsedCommandLine parsed = parse_command_line(row.arguments);
    EXPECT_EQ(parsed.action, row.action);
    EXPECT_EQ(parsed.refusal, row.refusal);
  }
}

}  // namespace
}  // namespace velmora
