// Recognises Windows paths by their text.
#pragma once

#include <string_view>

namespace velmora {

// Whether the path starts with a drive and its root: `C:\` or `C:/`.
[[nodiscard]] bool has_drive(std::string_view path);

// Whether the path starts with a server: `\\server`. Two slashes (`//server`) make a native path.
[[nodiscard]] bool has_share(std::string_view path);

}  // namespace velmora
