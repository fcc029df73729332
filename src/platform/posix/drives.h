// The machine's texts hold Windows paths. On this system a drive is a directory.
#pragma once

#include <string>
#include <string_view>

namespace velmora {

// Maps a Windows path to this system: `X:\a\b` and `X:/a/b` to `x/a/b`, and `\\server\share\a` to
// `unc/server/share/a`, below the drives directory. Every other path is unchanged.
//
// The drives directory is VELMORA_DRIVES (absolute), otherwise velmora/drives in the user's state
// directory (XDG_STATE_HOME, otherwise ~/.local/state).
[[nodiscard]] std::string native_path(std::string_view path);

}  // namespace velmora
