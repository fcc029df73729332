// The program from its arguments to its exit code.
#pragma once

#include <string_view>
#include <vector>

#include "service/exit_codes.h"
#include "service/options.h"

namespace velmora {

// Runs the program: the arguments come without the program's own name, the banner goes to standard
// output, failures to standard error. Returns when the service has been stopped or could not start;
// everything that was set up is taken down by then, in reverse order, but for the console handler and the
// process-wide values.
[[nodiscard]] ExitCode run_program(const std::vector<std::string_view>& arguments);

}  // namespace velmora
