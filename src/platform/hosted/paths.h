// Paths of a machine with drives, as text.
#pragma once

#include <string_view>

namespace velmora {

// Whether the path begins with a drive and its root, `C:\`.
[[nodiscard]] bool has_drive(std::string_view path);

}  // namespace velmora
