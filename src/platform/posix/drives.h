// The machine's own texts are Windows paths. Here a drive is a folder.
#pragma once

#include <string>
#include <string_view>

namespace velmora {

// Where a path leads on this system: `X:\a\b` to `x/a/b` below the folder of the drives, which is
// VELMORA_DRIVES (absolute), else velmora/drives below the user's state directory (XDG_STATE_HOME, else
// ~/.local/state). Every other path is its own.
[[nodiscard]] std::string native_path(std::string_view path);

}  // namespace velmora
