// Master volume and mute of the render endpoint that the service uses: the chosen one, else the Windows
// default. If the chosen endpoint has disappeared, the calls fail and do not fall back to the default.
// Results are status values (base/status.h); positive ones are successes.
#pragma once

#include <cstdint>

#include "endpoints/selection.h"
#include "platform/audio_endpoints.h"

namespace velmora {

struct EndpointVolumeState {
  bool available = false;       // volume and mute were both read
  float volume = 0;             // scalar, 0 to 1; 0 when not available
  bool muted = false;           // false when not available
  std::int32_t error_code = 0;  // the status of the failed call
};

// Opens the volume control of that endpoint. `out` is assigned only on success.
[[nodiscard]] std::int32_t open_endpoint_volume(const EndpointController& controller, EndpointVolume& out);

[[nodiscard]] EndpointVolumeState read_endpoint_volume(const EndpointController& controller);

// `level` is 0 to 1. status_invalid_argument: it is not, and the endpoint is untouched.
[[nodiscard]] std::int32_t set_endpoint_volume(const EndpointController& controller, float level);

[[nodiscard]] std::int32_t set_endpoint_mute(const EndpointController& controller, bool muted);

}  // namespace velmora
