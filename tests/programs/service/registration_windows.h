// How the test service gets into the service control manager's list, and out of it. Results are Win32 codes;
// 0 is success.
#pragma once

#include <string>
#include <vector>

#include "options.h"

namespace velmora::service {

// Registers this program under the name, in place of a service that is there already. `arguments` are those
// that `options` were parsed from.
[[nodiscard]] unsigned long install(const Options& options, const std::vector<std::wstring>& arguments);

// Ends the service's process where it has one and removes it. 0 also when there is none. Somebody who still
// has it open keeps the name until he closes it.
[[nodiscard]] unsigned long remove(const std::wstring& name);

}  // namespace velmora::service
