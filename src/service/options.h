// Parses the command line. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmora {

// The shortest token that --token accepts, in bytes.
inline constexpr std::size_t token_minimum_bytes = 32;

struct Options {
  std::uint16_t port = 17831;
  std::string web_root = "D:/proj/velmora/web";          // a path
  std::optional<std::string> token;                      // if absent, one is generated
  std::string control_map = "Global\\VelmoraControlV1";  // checked when the bridge is created
  std::string capture_directory;                         // a path; empty: none given
  std::string preset_directory;                          // a path; empty: none given
  bool verbose = false;
  bool open_browser = false;
  std::string account_service;  // empty: no account service
};

// The result of parsing.
struct ParsedCommandLine {
  enum class Action { serve, self_test, refuse };
  Action action = Action::serve;
  Options options;           // includes the options before a self-test or a refusal
  std::string_view refusal;  // the complete line for standard error; empty unless refused
};

// Parses the arguments (without the program name) in order, up to --self-test or the first that is refused.
// The last value of a repeated option wins.
[[nodiscard]] ParsedCommandLine parse_command_line(const std::vector<std::string_view>& arguments);

}  // namespace velmora
