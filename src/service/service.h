// Runs the program, from its arguments to its exit code.
#pragma once

#include <string_view>
#include <vector>

#include "service/exit_codes.h"
#include "service/options.h"

namespace velmora {

// Runs the program. The arguments exclude its own name. The banner goes to standard output, errors to
// standard error. Returns when the service was stopped or could not start. Everything is then released in
// reverse order, except for the console handler and the process-wide values.
[[nodiscard]] ExitCode run_program(const std::vector<std::string_view>& arguments);

}  // namespace velmora
