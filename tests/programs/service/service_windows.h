// The service itself, as the service control manager starts it.
#pragma once

#include "options.h"

namespace velmora::service {

// Lives as a service until it has been stopped. The process's exit code.
[[nodiscard]] int run_service(const Options& options);

}  // namespace velmora::service
