// Which endpoints the service uses. The choice belongs only to the service: the Windows default device, which
// other programs follow, is never changed. Results are status values (base/status.h).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/audio_endpoints.h"

namespace velmora {

// The choice, kept for the life of the process. An endpoint that disappears stays chosen.
struct EndpointController {
  std::u16string selected_render_id;   // empty: the Windows default
  std::u16string selected_capture_id;  // the same for capture
};

// Reads the id of the default endpoint of a flow. `out` is assigned only on success.
[[nodiscard]] std::int32_t default_endpoint_id(const DeviceEnumerator& enumerator, EndpointFlow flow,
                                               std::u16string& out);

// Returns the id (UTF-8) of the render endpoint that the service uses: the chosen one, else the default.
// Empty if there is none or the default cannot be read.
[[nodiscard]] std::string effective_render_endpoint_id(const EndpointController& controller);

// Returns 0 if an active endpoint of this flow has exactly this id, case included, else status_not_found.
[[nodiscard]] std::int32_t verify_active_endpoint(EndpointFlow flow, std::u16string_view id);

// Choose an active endpoint of the flow by its id (UTF-8). On failure the choice is unchanged.
// status_invalid_argument: the id is empty or ill-formed. status_not_found: no active endpoint has it.
// status_out_of_memory: an allocation failed.
[[nodiscard]] std::int32_t select_render_endpoint(EndpointController& controller, std::string_view id);
[[nodiscard]] std::int32_t select_capture_endpoint(EndpointController& controller, std::string_view id);

}  // namespace velmora
