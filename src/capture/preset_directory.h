// Where presets live, as the command line says.
#pragma once

#include <string>

namespace velmora {

// Value of --preset-directory (a path, UTF-8), empty without it. Set once, before the loop.
inline std::string preset_directory_override;

}  // namespace velmora
