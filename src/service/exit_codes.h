// The exit codes of the program. Scripts rely on them.
#pragma once

namespace velmora {

enum class ExitCode : int {
  done = 0,  // normal stop, or self-test passed
  self_test_failed = 1,
  bad_command_line = 2,
  page_unreadable = 3,
  no_token = 4,
  no_bridge = 5,
  no_com = 6,
  no_sockets = 7,
  no_listener_socket = 8,
  not_bound = 9,
  machine_unreadable = 10,  // only on Linux: the machine file cannot be read
};

}  // namespace velmora
