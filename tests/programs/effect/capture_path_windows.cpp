#include "base/text.h"
#include "capture_path.h"

namespace velmora::effect {

std::filesystem::path capture_path(const std::string& text) { return wide_from_utf8_replacing(text); }

}  // namespace velmora::effect
