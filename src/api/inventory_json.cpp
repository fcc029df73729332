#include "api/inventory_json.h"

#include <string_view>
#include <vector>

#include "binding/binding.h"
#include "json/write.h"

namespace velmora {
namespace {

void add_endpoint(JsonObject& members, const EndpointInfo& endpoint) {
  members.add("id", endpoint.id);
  members.add("name", endpoint.name);
  members.add("is_default", endpoint.is_default);
  members.add("is_selected", endpoint.is_selected);
  members.add("peak", endpoint.peak);
  members.add("sessions", endpoint.sessions);
}

// Whether to look up bindings: the effect is never bound to a capture endpoint.
enum class Chains { shown, hidden };

void append_endpoints(std::string& out, const std::vector<EndpointInfo>& endpoints, Chains chains) {
  out += '[';
  for (const EndpointInfo& endpoint : endpoints) {
    if (&endpoint != &endpoints.front()) out += ',';
    JsonObject members(out);
    add_endpoint(members, endpoint);
    if (chains == Chains::shown) members.add("apo_bound", endpoint_is_bound(endpoint.id));
    members.end();
  }
  out += ']';
}

}  // namespace

std::string endpoint_inventory_json(const EndpointInventory& inventory) {
  std::string out;
  JsonObject members(out);
  append_endpoints(members.begin("render"), inventory.render, Chains::shown);
  append_endpoints(members.begin("capture"), inventory.capture, Chains::hidden);
  members.add("default_render_endpoint_id", inventory.default_render_endpoint_id);
  members.add("default_capture_endpoint_id", inventory.default_capture_endpoint_id);
  members.add("selected_render_endpoint_id", inventory.selected_render_endpoint_id);
  members.add("selected_capture_endpoint_id", inventory.selected_capture_endpoint_id);
  members.add("error_code", inventory.error_code);
  members.end();
  return out;
}

}  // namespace velmora
