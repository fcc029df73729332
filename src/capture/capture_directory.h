// Where captures live, as the command line says.
#pragma once

#include <string>

namespace velmora {

// Value of --capture-directory (a path, UTF-8), empty without it. Set once, before the loop.
inline std::string capture_directory_override;

}  // namespace velmora
