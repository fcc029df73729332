// Master volume and mute of the render endpoint that the service works on: the chosen one, else the Windows
// default. A chosen endpoint that has gone away fails; the default does not stand in for it. Results are
// status values (base/status.h), a positive one being a success.
#pragma once

#include <cstdint>

#include "endpoints/selection.h"
#include "platform/audio_endpoints.h"

namespace velmora {

struct EndpointVolumeState {
  bool available = false;       // both readings worked
  float volume = 0;             // scalar, 0 to 1; 0 when not available
  bool muted = false;           // false when not available
  std::int32_t error_code = 0;  // the status of what failed
};

// `out` is assigned on success alone.
[[nodiscard]] std::int32_t open_endpoint_volume(const EndpointController& controller, EndpointVolume& out);

[[nodiscard]] EndpointVolumeState read_endpoint_volume(const EndpointController& controller);

// `level` is 0 to 1. status_invalid_argument: it is not, and the endpoint has not been touched.
[[nodiscard]] std::int32_t set_endpoint_volume(const EndpointController& controller, float level);

[[nodiscard]] std::int32_t set_endpoint_mute(const EndpointController& controller, bool muted);

}  // namespace velmora
