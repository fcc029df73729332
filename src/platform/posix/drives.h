// The machine's own texts are Windows paths. Here a drive is a folder.
#pragma once

#include <string>
#include <string_view>

namespace velmora {

// Where a path leads on this system: `X:\a\b` and `X:/a/b` to `x/a/b`, and `\\server\share\a` to
// `unc/server/share/a`, below the folder of the drives. That is VELMORA_DRIVES (absolute), else
// velmora/drives below the user's state directory (XDG_STATE_HOME, else ~/.local/state). Every other path is
// unchanged.
[[nodiscard]] std::string native_path(std::string_view path);

}  // namespace velmora
