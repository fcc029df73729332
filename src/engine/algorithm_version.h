// The version of the algorithm library in the directory of the program.
#pragma once

#include <string>

namespace velmora {

// The result of probe_algorithm_version. Set once, at start.
inline std::string algorithm_version;

// Loads "fse.dll" from this program's directory, calls its `fse_get_version` once, and returns
// "MAJOR.MINOR.PATCH". On failure returns "not found" (no such file), "unavailable" (it cannot be loaded), or
// "unknown" (no such function, or our own path is not known).
[[nodiscard]] std::string probe_algorithm_version();

}  // namespace velmora
