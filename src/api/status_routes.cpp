#include "api/status_routes.h"

#include <string>

#include "api/answers.h"
#include "api/status_document.h"
#include "endpoints/volume.h"

namespace velmora {

void get_status(const Socket& socket, ControlBridge& bridge, const EndpointController& endpoints,
                const AccountSession& session) {
  const std::string endpoint_id = effective_render_endpoint_id(endpoints);
  const EndpointVolumeState volume = read_endpoint_volume(endpoints);
  write_document(socket, build_status_json(bridge, volume, endpoint_id, session));
}

}  // namespace velmora
