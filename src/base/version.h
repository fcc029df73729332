// The version of this program. The Windows resource says the same.
#pragma once

#include <string_view>

namespace velmora {

inline constexpr std::string_view application_version = "1.2.0";

}  // namespace velmora
