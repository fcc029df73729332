// The exit codes of the command line, and what a command ends with. Scripts rely on the numbers.
#pragma once

#include <string>

namespace velmora {

enum class CommandCode : int {
  done = 0,
  bad_command_line = 2,
  // `start` returns 1 to 10 when the service could not start (service/exit_codes.h).
  not_running = 20,
  already_running = 21,
  held_by_client = 22,        // the service waits for a client that holds its connection
  run_file_unreadable = 23,   // somebody else's, or it cannot be read
  run_file_not_written = 24,  // no service is left running
  service_lost = 25,          // it ended unasked, or was ended at once, while the command relied on it
  port_taken = 26,            // by another program, or by a service that this command did not start
  not_started = 27,           // the service program cannot be started
  no_browser = 28,
  senseless_answer = 29,
  output_not_written = 30,  // a full disk, or nobody reads
};

// How a command ended. `sentence` is one line for standard error: it begins with a capital, says what to do
// and ends with a full stop. It is empty after success.
struct Outcome {
  CommandCode code = CommandCode::done;
  std::string sentence;

  [[nodiscard]] bool failed() const { return code != CommandCode::done; }
};

}  // namespace velmora
