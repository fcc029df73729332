// What an endpoint plays at the moment: how loud, and for whom. Failures show as less: a peak of 0, fewer
// sessions.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/audio_endpoints.h"

namespace velmora {

// The master peak as the meter gives it (0 to 1 by its contract; it is not clamped). 0 where it cannot be
// read or is no finite number.
[[nodiscard]] float read_endpoint_peak(const AudioDevice& device);

// The display name of each active session's process (UTF-8), in the system's order. Two sessions of one
// process give two names.
[[nodiscard]] std::vector<std::string> read_endpoint_sessions(const AudioDevice& device);

// "system" for id 0; the file name of the process's program (UTF-8); "pid " and the id where that cannot be
// had.
[[nodiscard]] std::string process_display_name(std::uint32_t process_id);

}  // namespace velmora
