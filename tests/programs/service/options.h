// What the test service gets on its command line. A test gives it to `install`, which hands it on to the
// service itself.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velmora::service {

constexpr std::uint32_t for_ever_ms = 0xFFFFFFFF;  // INFINITE, winbase.h

enum class Command {
  install,  // registers the service, in place of one of this name
  remove,   // ends its process, if there is one, and removes it; content when there is none
  run,      // what the service control manager starts
};

struct Options {
  Command command = Command::run;
  std::wstring name;
  std::uint32_t start_ms = 0;  // how long it is on its way
  std::uint32_t stop_ms = 0;   // milliseconds; for_ever_ms: it never arrives
  // The Win32 error with which it refuses to stop: 1052, and the manager does not ask it at all; any other,
  // and it answers so when it is asked (Wine takes each answer for a yes, and the service runs on).
  std::uint32_t stop_error = 0;
  std::uint32_t start_error = 0;    // the Win32 error with which it ends instead of running
  bool exits_at_start = false;      // its process ends before it has reported to the manager
  bool is_disabled = false;         // the manager does not start it
  std::wstring log;                 // the file that it logs to; empty: none
  std::vector<std::wstring> needs;  // the services that it depends on
};

constexpr const char* usage =
    "usage: velmora_test_service install NAME [--start-ms N|forever] [--stop-ms N|forever]\n"
    "                                            [--refuse-stop ERROR] [--refuse-start ERROR|exit]\n"
    "                                            [--disabled] [--log FILE] [--depends NAME]...\n"
    "       velmora_test_service remove NAME\n";

// The arguments behind the program's name. None when they are not as the usage says.
[[nodiscard]] std::optional<Options> parse_options(const std::vector<std::wstring>& arguments);

}  // namespace velmora::service
