// Named equalizer settings, one JSON file each. The directory is the whole state: nothing is kept in memory.
#pragma once

#include <string>
#include <string_view>

#include "bridge/record.h"

namespace velmora {

// Whether a name, decoded, may name a preset: 1 to 64 bytes, each a letter or digit of ASCII, a blank, `-`,
// `_` or 0x80 and above; no blank at either end. It is what keeps a name from reaching outside the directory.
[[nodiscard]] bool preset_name_valid(std::string_view name);

// Where presets lie (UTF-8): --preset-directory, else `presets` beside the capture directory. Looked up
// afresh each time.
[[nodiscard]] std::string preset_directory();

// The list as the answer's body, {"presets":["a","b"]}: the stems of all regular files that end in `.json`,
// in the directory's own order. Empty when the directory cannot be read.
[[nodiscard]] std::string list_presets(std::string_view directory);

// The file's bytes as they are. Empty when there is no such regular file, or it is empty or cannot be read.
[[nodiscard]] std::string read_preset(std::string_view directory, std::string_view name);

// Writes the setting straight into the file, which is made or replaced; the directory is made where it is
// missing. False when that fails, and then the file may be left cut short. What is no regular file is never
// written to.
[[nodiscard]] bool write_preset(std::string_view directory, std::string_view name,
                                const EqSettings& settings);

// False when nothing was removed, for whatever reason. Only a regular file is ever removed.
[[nodiscard]] bool delete_preset(std::string_view directory, std::string_view name);

}  // namespace velmora
