#include "endpoints/meters.h"

#include <cmath>
#include <string_view>

#include "base/text.h"
#include "platform/processes.h"

namespace velmora {
namespace {

// The part after the last backslash, or the whole path.
std::u16string_view file_name_of(std::u16string_view path) { return path.substr(path.rfind(u'\\') + 1); }

}  // namespace

float read_endpoint_peak(const AudioDevice& device) {
  float peak = 0;
  if (read_peak_value(device, peak) < 0 || !std::isfinite(peak)) return 0;
  return peak;
}

std::vector<std::string> read_endpoint_sessions(const AudioDevice& device) {
  std::vector<std::string> names;
  AudioSessionList list;
  std::int32_t count = 0;
  if (list_sessions(device, list, count) < 0) return names;
  for (std::int32_t index = 0; index < count; ++index) {
    AudioSession session;
    if (read_session(list, index, session) < 0 || session.state != session_active) continue;
    names.push_back(process_display_name(session.process_id));
  }
  return names;
}

std::string process_display_name(std::uint32_t process_id) {
  if (process_id == 0) return "system";
  std::string name = utf8_from_wide(file_name_of(process_image_path(process_id)));
  return name.empty() ? "pid " + std::to_string(process_id) : name;
}

}  // namespace velmora
