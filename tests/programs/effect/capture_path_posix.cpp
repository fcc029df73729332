#include "capture_path.h"
#include "platform/posix/drives.h"

namespace velmora::effect {

std::filesystem::path capture_path(const std::string& text) { return native_path(text); }

}  // namespace velmora::effect
