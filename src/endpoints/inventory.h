// The inventory of the audio endpoints. Each pass is a snapshot: nothing is cached, and everything opened is
// closed again. Results are status values (base/status.h).
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
  std::string name;                   // the id if the name cannot be read
  bool is_default = false;            // the default of its flow
  bool is_selected = false;           // the endpoint of its flow that the service uses
  float peak = 0;                     // as the meter reports it, 0 to 1 by its contract; 0 if unreadable
  std::vector<std::string> sessions;  // one name per active session, in system order
};

struct EndpointInventory {
  std::vector<EndpointInfo> render;  // in system order
  std::vector<EndpointInfo> capture;
  std::string default_render_endpoint_id;  // empty: unknown
  std::string default_capture_endpoint_id;
  std::string selected_render_endpoint_id;  // the chosen endpoint, else the default
  std::string selected_capture_endpoint_id;
  std::int32_t error_code = 0;  // the first error; 0 if there was none
};

// Appends the active endpoints of a flow to `out`. After a failure `out` keeps those read so far. An error in
// a name, meter or session affects only that field.
[[nodiscard]] std::int32_t collect_endpoints(const DeviceEnumerator& enumerator, EndpointFlow flow,
                                             std::u16string_view default_id, std::u16string_view working_id,
                                             std::vector<EndpointInfo>& out);

// Replaces `out` with a new inventory. `out` is always valid; errors are in its error_code.
void inventory_endpoints(const EndpointController& controller, EndpointInventory& out);

}  // namespace velmora
