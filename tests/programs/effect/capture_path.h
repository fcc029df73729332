// Where the text of a directory leads on this system.
#pragma once

#include <filesystem>
#include <string>

namespace velmora::effect {

// `text` is UTF-8. As the service has it: where Windows paths are foreign, they lead below the folder of the
// drives.
[[nodiscard]] std::filesystem::path capture_path(const std::string& text);

}  // namespace velmora::effect
