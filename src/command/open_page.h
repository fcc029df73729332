// The command `open`.
#pragma once

#include "command/exit_codes.h"
#include "command/run_file.h"

namespace velmora {

// Opens the page in the browser, once the service has answered a request with the token.
[[nodiscard]] Outcome open_page(const RunRecord& run);

// Opens the page of the service that runs. One that is still starting is waited for.
[[nodiscard]] Outcome open_running_page();

}  // namespace velmora
