// The command line. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmora {

// The shortest token that --token takes, bytes.
inline constexpr std::size_t token_minimum_bytes = 32;

struct Options {
  std::uint16_t port = 17831;
  std::string web_root = "D:/proj/velmora/web";          // a path
  std::optional<std::string> token;                      // without it one is generated
  std::string control_map = "Global\\VelmoraControlV1";  // checked when the bridge is made
  std::string capture_directory;                         // a path; empty: none given
  std::string preset_directory;                          // a path; empty: none given
  bool verbose = false;
  bool open_browser = false;
  std::string account_service;  // empty: no account service
};

// What the arguments ask for.
struct ParsedCommandLine {
  enum class Action { serve, self_test, refuse };
  Action action = Action::serve;
  Options options;           // what stood in front of a self-test or a refusal is in it too
  std::string_view refusal;  // the whole line for standard error; empty unless refused
};

// Takes the arguments in order, without the program's own name, up to the first that is refused or is
// --self-test. An option given twice takes its last value.
[[nodiscard]] ParsedCommandLine parse_command_line(const std::vector<std::string_view>& arguments);

}  // namespace velmora
