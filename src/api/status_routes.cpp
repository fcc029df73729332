#include "api/status_routes.h"

#include <string>

#include "api/status_document.h"
#include "endpoints/volume.h"
#include "http/response.h"

namespace velmora {

void get_status(const Socket& socket, ControlBridge& bridge, const EndpointController& endpoints,
                const AccountSession& session) {
  const std::string endpoint_id = effective_render_endpoint_id(endpoints);
  const EndpointVolumeState volume = read_endpoint_volume(endpoints);
  write_response(socket, 200, "OK", content_type_json_document,
                 build_status_json(bridge, volume, endpoint_id, session));
}

}  // namespace velmora
