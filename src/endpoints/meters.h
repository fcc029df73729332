// What an endpoint is playing: its level and its sessions. Errors give less: a peak of 0, fewer sessions.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/audio_endpoints.h"

namespace velmora {

// Returns the master peak as the meter reports it (0 to 1 by its contract, not clamped). Returns 0 if it
// cannot be read or is not finite.
[[nodiscard]] float read_endpoint_peak(const AudioDevice& device);

// Returns the display name of each active session's process (UTF-8), in system order. Two sessions of one
// process give two names.
[[nodiscard]] std::vector<std::string> read_endpoint_sessions(const AudioDevice& device);

// Returns "system" for id 0, else the file name of the process's program (UTF-8). If that is unavailable,
// returns "pid " and the id.
[[nodiscard]] std::string process_display_name(std::uint32_t process_id);

}  // namespace velmora
