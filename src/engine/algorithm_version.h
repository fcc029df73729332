// The version of the algorithm library that stands beside the program.
#pragma once

#include <string>

namespace velmora {

// What probe_algorithm_version found. Set once, at start.
inline std::string algorithm_version;

// Loads "fse.dll" from this program's directory for one call of its `fse_get_version` and returns
// "MAJOR.MINOR.PATCH". Otherwise: "not found" without such a file, "unavailable" if it cannot be loaded,
// "unknown" if it has no such function or our own path is not known.
[[nodiscard]] std::string probe_algorithm_version();

}  // namespace velmora
