// The command `status`.
#pragma once

#include <string>

#include "command/exit_codes.h"

namespace velmora {

// Asks the service that runs. On success `report` is what to print; otherwise it is unchanged.
[[nodiscard]] Outcome report_status(bool as_json, std::string& report);

}  // namespace velmora
