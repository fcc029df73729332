// The command `stop`.
#pragma once

#include "command/arguments.h"

namespace velmora {

// Ends the service that `start` runs and returns the exit code. Messages go to the standard streams.
[[nodiscard]] int stop_command(const CommandArguments& arguments);

}  // namespace velmora
