// The audio endpoints as they are at the moment. A pass over them is a snapshot: nothing is kept of it, and
// what it opened is closed again. Results are status values (base/status.h).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "endpoints/selection.h"
#include "platform/audio_endpoints.h"

namespace velmora {

// An active endpoint. Texts are UTF-8.
struct EndpointInfo {
  std::string id;
  std::string name;          // its id where it has no name that can be read
  bool is_default = false;   // of its flow
  bool is_selected = false;  // the one of its flow that the service works on
  float peak = 0;            // as the meter gives it, by its contract 0 to 1; 0 where it cannot be read
  std::vector<std::string> sessions;  // a name for each active session, in the system's order
};

struct EndpointInventory {
  std::vector<EndpointInfo> render;  // in the system's order
  std::vector<EndpointInfo> capture;
  std::string default_render_endpoint_id;  // empty: unknown
  std::string default_capture_endpoint_id;
  std::string selected_render_endpoint_id;  // the chosen one, else the default one
  std::string selected_capture_endpoint_id;
  std::int32_t error_code = 0;  // what went wrong, if anything did
};

// Appends the active endpoints of a flow to `out`. On failure those that had been read by then are in it.
// What fails at an endpoint's name, meter or sessions shows there alone.
[[nodiscard]] std::int32_t collect_endpoints(const DeviceEnumerator& enumerator, EndpointFlow flow,
                                             std::u16string_view default_id, std::u16string_view working_id,
                                             std::vector<EndpointInfo>& out);

// Looks at all endpoints. `out` is replaced. It always stands; what failed is its error_code.
void inventory_endpoints(const EndpointController& controller, EndpointInventory& out);

}  // namespace velmora
