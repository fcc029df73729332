// Named equalizer settings, one JSON file each. The directory is the only state: nothing is cached.
#pragma once

#include <string>
#include <string_view>

#include "bridge/record.h"

namespace velmora {

// True if a decoded name may name a preset. It has 1 to 64 bytes: ASCII letters and digits, blanks, `-`, `_`,
// and 0x80 and above, with no blank at either end. This check keeps names inside the directory.
[[nodiscard]] bool preset_name_valid(std::string_view name);

// Returns the directory of presets (UTF-8): --preset-directory, else `presets` beside the capture directory.
// Looked up on each call.
[[nodiscard]] std::string preset_directory();

// Returns the answer's body, {"presets":["a","b"]}: the stems of all regular files that end in `.json`, in
// directory order. The list is empty if the directory cannot be read.
[[nodiscard]] std::string list_presets(std::string_view directory);

// Returns the file's bytes unchanged. Empty if the file is missing, empty, unreadable or not regular.
[[nodiscard]] std::string read_preset(std::string_view directory, std::string_view name);

// Writes the setting straight into the file, creating or replacing it; creates the directory if needed.
// Returns false on failure, which may leave the file truncated. Never writes to anything but a regular file.
[[nodiscard]] bool write_preset(std::string_view directory, std::string_view name,
                                const EqSettings& settings);

// Returns false if nothing was deleted, for any reason. Deletes only regular files.
[[nodiscard]] bool delete_preset(std::string_view directory, std::string_view name);

}  // namespace velmora
