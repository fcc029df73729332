// The version. The build reads it here for the Windows resources, and ./package for its names.
#pragma once

#include <string_view>

namespace velmora {

inline constexpr std::string_view application_version = "1.2.0";

}  // namespace velmora
