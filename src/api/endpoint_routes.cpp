#include "api/endpoint_routes.h"

#include "api/answers.h"
#include "api/inventory_json.h"
#include "base/status.h"
#include "endpoints/inventory.h"
#include "endpoints/volume.h"
#include "json/find.h"

namespace velmora {

void get_devices(const Socket& socket, const EndpointController& controller) {
  EndpointInventory inventory;
  inventory_endpoints(controller, inventory);
  write_document(socket, endpoint_inventory_json(inventory));
}

void put_device(const Socket& socket, const ApiRequest& request, std::string_view path,
                EndpointController& controller) {
  const auto id = json_find_string(request.body, "endpoint_id");
  if (!id || id->empty()) {
    return write_bad_request(socket, "endpoint_id must be a non-empty string");
  }
  const std::int32_t status = path.ends_with("/render") ? select_render_endpoint(controller, *id)
                                                        : select_capture_endpoint(controller, *id);
  if (status == status_not_found) {
    return write_not_found(socket, "active endpoint not found for this direction");
  }
  if (status < 0) return write_unavailable(socket, "Windows endpoint selection failed");
  write_ok(socket);
}

void put_volume(const Socket& socket, const ApiRequest& request, const EndpointController& controller) {
  const auto level = json_find_number(request.body, "volume");
  if (!level || *level < 0 || *level > 1) {
    return write_bad_request(socket, "volume must be between 0 and 1");
  }
  if (set_endpoint_volume(controller, *level) < 0) {
    return write_unavailable(socket, "Windows endpoint volume update failed");
  }
  write_ok(socket);
}

void put_mute(const Socket& socket, const ApiRequest& request, const EndpointController& controller) {
  const auto muted = json_find_bool(request.body, "muted");
  if (!muted) return write_bad_request(socket, "muted must be a boolean");
  if (set_endpoint_mute(controller, *muted) < 0) {
    return write_unavailable(socket, "Windows endpoint mute update failed");
  }
  write_ok(socket);
}

}  // namespace velmora
