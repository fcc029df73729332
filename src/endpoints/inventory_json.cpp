#include "endpoints/inventory_json.h"

#include <string_view>
#include <vector>

#include "binding/binding.h"
#include "http/json_answer.h"

namespace velmora {
namespace {

bool is_bound(std::string_view endpoint_id) {
  EndpointBindingState state;
  return inspect_endpoint_binding(endpoint_id, state) >= 0 && state.bound;
}

void append_endpoint(std::string& out, const EndpointInfo& endpoint) {
  out += "\"id\":";
  append_text(out, endpoint.id);
  out += ",\"name\":";
  append_text(out, endpoint.name);
  out += ",\"is_default\":";
  append_bool(out, endpoint.is_default);
  out += ",\"is_selected\":";
  append_bool(out, endpoint.is_selected);
  out += ",\"peak\":";
  append_number(out, endpoint.peak);
  out += ",\"sessions\":";
  append_texts(out, endpoint.sessions);
}

void append_render_endpoints(std::string& out, const std::vector<EndpointInfo>& endpoints) {
  std::string_view separator;
  for (const EndpointInfo& endpoint : endpoints) {
    out.append(separator).append("{");
    append_endpoint(out, endpoint);
    out += ",\"apo_bound\":";
    append_bool(out, is_bound(endpoint.id));
    out += '}';
    separator = ",";
  }
}

// A capture endpoint has no effect chain of ours.
void append_capture_endpoints(std::string& out, const std::vector<EndpointInfo>& endpoints) {
  std::string_view separator;
  for (const EndpointInfo& endpoint : endpoints) {
    out.append(separator).append("{");
    append_endpoint(out, endpoint);
    out += '}';
    separator = ",";
  }
}

}  // namespace

std::string endpoint_inventory_json(const EndpointInventory& inventory) {
  std::string out = "{\"render\":[";
  append_render_endpoints(out, inventory.render);
  out += "],\"capture\":[";
  append_capture_endpoints(out, inventory.capture);
  out += "],\"default_render_endpoint_id\":";
  append_text(out, inventory.default_render_endpoint_id);
  out += ",\"default_capture_endpoint_id\":";
  append_text(out, inventory.default_capture_endpoint_id);
  out += ",\"selected_render_endpoint_id\":";
  append_text(out, inventory.selected_render_endpoint_id);
  out += ",\"selected_capture_endpoint_id\":";
  append_text(out, inventory.selected_capture_endpoint_id);
  out += ",\"error_code\":";
  append_integer(out, inventory.error_code);
  out += '}';
  return out;
}

}  // namespace velmora
