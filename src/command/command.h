// Runs the command line `velmora`.
#pragma once

#include <string_view>
#include <vector>

namespace velmora {

// Runs one command and returns its exit code (exit_codes.h). The arguments exclude the program's own name.
// What was asked for goes to standard output, failures to standard error.
[[nodiscard]] int run_command(const std::vector<std::string_view>& arguments);

}  // namespace velmora
