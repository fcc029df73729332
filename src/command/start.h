// The command `start`.
#pragma once

#include "command/arguments.h"

namespace velmora {

// Runs the service until it ends and returns the exit code. Messages go to standard error.
[[nodiscard]] int start_command(const CommandArguments& arguments);

}  // namespace velmora
