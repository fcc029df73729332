// The version of this program. Keep it equal to the one in the Windows resource (program.rc).
#pragma once

#include <string_view>

namespace velmora {

inline constexpr std::string_view application_version = "1.2.0";

}  // namespace velmora
