#include "endpoints/selection.h"

#include <new>
#include <utility>

#include "base/status.h"
#include "base/text.h"

namespace velmora {
namespace {

std::int32_t select_endpoint(EndpointFlow flow, std::string_view id, std::u16string& selected) {
  // If memory runs out, only this choice fails: the client may repeat it, and the service continues.
  try {
    std::u16string wide_id = wide_from_utf8(id);
    if (wide_id.empty()) return status_invalid_argument;
    const std::int32_t status = verify_active_endpoint(flow, wide_id);
    if (status >= 0) selected = std::move(wide_id);
    return status;
  } catch (const std::bad_alloc&) {
    return status_out_of_memory;
  }
}

}  // namespace

std::int32_t default_endpoint_id(const DeviceEnumerator& enumerator, EndpointFlow flow, std::u16string& out) {
  AudioDevice device;
  const std::int32_t status = get_default_device(enumerator, flow, device);
  if (status < 0) return status;
  return get_device_id(device, out);
}

std::string effective_render_endpoint_id(const EndpointController& controller) {
  if (!controller.selected_render_id.empty()) return utf8_from_wide(controller.selected_render_id);
  DeviceEnumerator enumerator;
  if (create_device_enumerator(enumerator) < 0) return {};
  std::u16string id;
  if (default_endpoint_id(enumerator, EndpointFlow::render, id) < 0) return {};
  return utf8_from_wide(id);
}

std::int32_t verify_active_endpoint(EndpointFlow flow, std::u16string_view id) {
  DeviceEnumerator enumerator;
  std::int32_t status = create_device_enumerator(enumerator);
  if (status < 0) return status;
  AudioDeviceList list;
  std::uint32_t count = 0;
  status = list_active_devices(enumerator, flow, list, count);
  if (status < 0) return status;
  for (std::uint32_t index = 0; index < count; ++index) {
    AudioDevice device;
    status = get_listed_device(list, index, device);
    if (status < 0) return status;
    std::u16string listed_id;
    status = get_device_id(device, listed_id);
    if (status < 0) return status;
    if (listed_id == id) return 0;
  }
  return status_not_found;
}

std::int32_t select_render_endpoint(EndpointController& controller, std::string_view id) {
  return select_endpoint(EndpointFlow::render, id, controller.selected_render_id);
}

std::int32_t select_capture_endpoint(EndpointController& controller, std::string_view id) {
  return select_endpoint(EndpointFlow::capture, id, controller.selected_capture_id);
}

}  // namespace velmora
