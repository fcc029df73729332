// Paths of a machine with drives, as text.
#pragma once

#include <string_view>

namespace velmora {

// Whether the path begins with a drive and its root, `C:\` or `C:/`.
[[nodiscard]] bool has_drive(std::string_view path);

// Whether the path begins as one on another computer, `\\server`. A path with two slashes (`//server`) is one
// of this system's own.
[[nodiscard]] bool has_share(std::string_view path);

}  // namespace velmora
