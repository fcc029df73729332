// The preset directory from the command line.
#pragma once

#include <string>

namespace velmora {

// The value of --preset-directory (a path, UTF-8); empty if not given. Set once, before the loop starts.
inline std::string preset_directory_override;

}  // namespace velmora
