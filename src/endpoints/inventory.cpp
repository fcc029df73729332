#include "endpoints/inventory.h"

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "endpoints/meters.h"

namespace velmora {
namespace {

// Limits the space reserved in advance: the count from the system is not trusted.
constexpr std::uint32_t max_reserved = 1024;

EndpointInfo describe_endpoint(const AudioDevice& device, const std::u16string& id,
                               std::u16string_view default_id, std::u16string_view working_id) {
  std::u16string name;
  if (read_endpoint_name(device, name) < 0) name = id;
  EndpointInfo info;
  info.id = utf8_from_wide(id);
  info.name = utf8_from_wide(name);
  info.is_default = id == default_id;
  info.is_selected = id == working_id;
  info.peak = read_endpoint_peak(device);
  info.sessions = read_endpoint_sessions(device);
  return info;
}

// A missing default endpoint is an error only if the flow has no endpoints at all.
std::int32_t error_of_missing_default(std::int32_t default_status,
                                      const std::vector<EndpointInfo>& endpoints) {
  return default_status < 0 && endpoints.empty() ? default_status : 0;
}

}  // namespace

std::int32_t collect_endpoints(const DeviceEnumerator& enumerator, EndpointFlow flow,
                               std::u16string_view default_id, std::u16string_view working_id,
                               std::vector<EndpointInfo>& out) {
  AudioDeviceList list;
  std::uint32_t count = 0;
  std::int32_t status = list_active_devices(enumerator, flow, list, count);
  if (status < 0) return status;
  out.reserve(out.size() + std::min(count, max_reserved));
  for (std::uint32_t index = 0; index < count; ++index) {
    AudioDevice device;
    status = get_listed_device(list, index, device);
    if (status < 0) return status;
    std::u16string id;
    status = get_device_id(device, id);
    if (status < 0) return status;
    out.push_back(describe_endpoint(device, id, default_id, working_id));
  }
  return 0;
}

void inventory_endpoints(const EndpointController& controller, EndpointInventory& out) {
  out = {};
  DeviceEnumerator enumerator;
  const std::int32_t status = create_device_enumerator(enumerator);
  if (status < 0) {
    out.error_code = status;
    return;
  }
  std::u16string default_render;
  std::u16string default_capture;
  const std::int32_t render_status = default_endpoint_id(enumerator, EndpointFlow::render, default_render);
  const std::int32_t capture_status = default_endpoint_id(enumerator, EndpointFlow::capture, default_capture);
  const std::u16string& working_render =
      controller.selected_render_id.empty() ? default_render : controller.selected_render_id;
  const std::u16string& working_capture =
      controller.selected_capture_id.empty() ? default_capture : controller.selected_capture_id;

  out.error_code =
      collect_endpoints(enumerator, EndpointFlow::render, default_render, working_render, out.render);
  if (out.error_code == 0) {
    out.error_code =
        collect_endpoints(enumerator, EndpointFlow::capture, default_capture, working_capture, out.capture);
  }
  out.default_render_endpoint_id = utf8_from_wide(default_render);
  out.default_capture_endpoint_id = utf8_from_wide(default_capture);
  out.selected_render_endpoint_id = utf8_from_wide(working_render);
  out.selected_capture_endpoint_id = utf8_from_wide(working_capture);
  if (out.error_code == 0) out.error_code = error_of_missing_default(render_status, out.render);
  if (out.error_code == 0) out.error_code = error_of_missing_default(capture_status, out.capture);
}

}  // namespace velmora
