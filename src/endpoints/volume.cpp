#include "endpoints/volume.h"

#include "base/status.h"

namespace velmora {
namespace {

std::int32_t get_working_device(const DeviceEnumerator& enumerator, const EndpointController& controller,
                                AudioDevice& out) {
  if (controller.selected_render_id.empty()) {
    return get_default_device(enumerator, EndpointFlow::render, out);
  }
  return get_device(enumerator, controller.selected_render_id, out);
}

EndpointVolumeState unavailable(std::int32_t status) { return {false, 0, false, status}; }

}  // namespace

std::int32_t open_endpoint_volume(const EndpointController& controller, EndpointVolume& out) {
  DeviceEnumerator enumerator;
  std::int32_t status = create_device_enumerator(enumerator);
  if (status < 0) return status;
  AudioDevice device;
  status = get_working_device(enumerator, controller, device);
  if (status < 0) return status;
  return activate_volume(device, out);
}

EndpointVolumeState read_endpoint_volume(const EndpointController& controller) {
  EndpointVolume volume;
  std::int32_t status = open_endpoint_volume(controller, volume);
  if (status < 0) return unavailable(status);
  float level = 0;
  status = get_volume_level(volume, level);
  if (status < 0) return unavailable(status);
  bool muted = false;
  status = get_mute(volume, muted);
  if (status < 0) return unavailable(status);
  return {true, level, muted, 0};
}

std::int32_t set_endpoint_volume(const EndpointController& controller, float level) {
  // Written this way so that NaN is refused.
  if (!(level >= 0 && level <= 1)) return status_invalid_argument;
  EndpointVolume volume;
  const std::int32_t status = open_endpoint_volume(controller, volume);
  if (status < 0) return status;
  return set_volume_level(volume, level);
}

std::int32_t set_endpoint_mute(const EndpointController& controller, bool muted) {
  EndpointVolume volume;
  const std::int32_t status = open_endpoint_volume(controller, volume);
  if (status < 0) return status;
  return set_mute(volume, muted);
}

}  // namespace velmora
