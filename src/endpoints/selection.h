// Which endpoints the service works on. The choice is the service's own: the default device of Windows, which
// other programs follow, stays as it is. Results are status values (base/status.h).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/audio_endpoints.h"

namespace velmora {

// The choice, for as long as the process lives. An endpoint that goes away stays chosen until another one is.
struct EndpointController {
  std::u16string selected_render_id;   // empty: the Windows default is followed
  std::u16string selected_capture_id;  // the same for capture
};

// The id of the default endpoint of a flow. `out` is assigned on success alone.
[[nodiscard]] std::int32_t default_endpoint_id(const DeviceEnumerator& enumerator, EndpointFlow flow,
                                               std::u16string& out);

// The id (UTF-8) of the render endpoint that the service works on: the chosen one, else the default one.
// Empty when there is none.
[[nodiscard]] std::string effective_render_endpoint_id(const EndpointController& controller);

// 0: an active endpoint of this flow has exactly this id, in the case of its letters too. status_not_found:
// none has.
[[nodiscard]] std::int32_t verify_active_endpoint(EndpointFlow flow, std::u16string_view id);

// Choose an endpoint by its id (UTF-8) when it is an active one of the flow; otherwise the choice stays.
// status_invalid_argument: the id is empty or ill-formed. status_out_of_memory: there was no room for the
// work.
[[nodiscard]] std::int32_t select_render_endpoint(EndpointController& controller, std::string_view id);
[[nodiscard]] std::int32_t select_capture_endpoint(EndpointController& controller, std::string_view id);

}  // namespace velmora
