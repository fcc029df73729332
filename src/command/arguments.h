// Parses the command line of `velmora`. Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmora {

enum class CommandName { none, help, version, start, stop, status, open, interrupt };

struct CommandArguments {
  CommandName command = CommandName::none;
  CommandName help_for = CommandName::none;  // `help` only; none: the overview
  bool window = false;                       // start, stop
  bool force = false;                        // stop
  bool json = false;                         // status
  std::uint32_t process_id = 0;              // interrupt
  std::vector<std::string> service_options;  // start: handed on to the service unchanged
  std::string refusal;                       // one sentence; empty unless the command line is refused
};

// Parses the arguments without the program name. Whether the service accepts its own options is left to the
// service. No argument at all is refused with an empty command and the overview as the only answer.
[[nodiscard]] CommandArguments parse_command_arguments(const std::vector<std::string_view>& arguments);

// Returns the value that the service will use for one of its options, such as "--port": that of the last
// occurrence. The value of another option is never taken for an option.
[[nodiscard]] std::optional<std::string> service_option(const std::vector<std::string>& options,
                                                        std::string_view name);

}  // namespace velmora
