// Audio endpoints of the hosted machine's registry tree. They behave like Core Audio's interfaces.
#include "platform/audio_endpoints.h"

#include <utility>

#include "base/status.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/hosted/audio_tree.h"
#include "platform/hosted/machine_state.h"

namespace velmora {
namespace {

// AUDCLNT_E_DEVICE_INVALIDATED (audioclient.h): the endpoint is inactive or gone.
constexpr auto status_device_invalidated = static_cast<std::int32_t>(0x88890004u);
// SetMute returns S_FALSE if nothing changes (endpointvolume.h).
constexpr std::int32_t status_nothing_changed = 1;

// Enters a call. A negative status replaces the call; a positive one is the call's result after its work.
std::int32_t enter_call(std::string_view operation, std::u16string_view subject = u"") {
  const auto answer = static_cast<std::int32_t>(hosted::enter(operation, subject));
  return answer == std::int32_t{error_registry_io_failed} ? hresult_from_win32(answer) : answer;
}

const hosted::RegistryTree& registry() { return hosted::machine_state().registry; }

const hosted::AudioObject& object_of(std::uintptr_t native) {
  return hosted::machine_state().audio_objects.at(native);
}

template <typename Kind>
void hold(hosted::AudioObject object, Owner<Kind>& out) {
  hosted::MachineState& machine = hosted::machine_state();
  const std::uintptr_t number = machine.next_audio_object++;
  machine.audio_objects.emplace(number, std::move(object));
  out = Owner<Kind>(number);
}

bool is_active(std::u16string_view id) {
  const auto endpoint = hosted::find_endpoint(registry(), id);
  return endpoint && endpoint->active;
}

std::u16string number_text(std::int64_t number) {
  const std::string digits = std::to_string(number);
  return {digits.begin(), digits.end()};
}

// Keeps the changed registry and returns `status`, or restores `before` and returns the error.
std::int32_t finish_change(hosted::RegistryTree before, std::int32_t status) {
  const std::int32_t error = hosted::keep_or_undo(std::move(before));
  return error == 0 ? status : hresult_from_win32(error);
}

}  // namespace

void release_audio_object(std::uintptr_t native) noexcept {
  static_cast<void>(enter_call("Release"));
  hosted::machine_state().audio_objects.erase(native);
}

std::int32_t create_device_enumerator(DeviceEnumerator& out) {
  const std::int32_t status = enter_call("CoCreateInstance");
  if (status < 0) return status;
  hold({}, out);
  return status;
}

std::int32_t get_default_device(const DeviceEnumerator&, EndpointFlow flow, AudioDevice& out) {
  const std::int32_t status =
      enter_call("GetDefaultAudioEndpoint", number_text(static_cast<std::int32_t>(flow)));
  if (status < 0) return status;
  std::u16string id = hosted::default_endpoint_of(registry(), flow);
  if (id.empty()) return status_not_found;
  hold({std::move(id), {}, {}}, out);
  return status;
}

std::int32_t get_device(const DeviceEnumerator&, std::u16string_view id, AudioDevice& out) {
  const std::int32_t status = enter_call("GetDevice", id);
  if (status < 0) return status;
  if (!hosted::find_endpoint(registry(), id)) return status_not_found;
  hold({std::u16string(id), {}, {}}, out);
  return status;
}

std::int32_t list_active_devices(const DeviceEnumerator&, EndpointFlow flow, AudioDeviceList& out,
                                 std::uint32_t& count) {
  const std::int32_t status = enter_call("EnumAudioEndpoints", number_text(static_cast<std::int32_t>(flow)));
  if (status < 0) return status;
  hosted::AudioObject list;
  for (hosted::TreeEndpoint& endpoint : hosted::endpoints_of(registry(), flow)) {
    if (endpoint.active) list.listed.push_back(std::move(endpoint.id));
  }
  count = static_cast<std::uint32_t>(list.listed.size());
  hold(std::move(list), out);
  return status;
}

std::int32_t get_listed_device(const AudioDeviceList& list, std::uint32_t index, AudioDevice& out) {
  const std::int32_t status = enter_call("Item", number_text(index));
  if (status < 0) return status;
  const auto& listed = object_of(list.native()).listed;
  if (index >= listed.size()) return status_invalid_argument;
  hold({listed[index], {}, {}}, out);
  return status;
}

std::int32_t get_device_id(const AudioDevice& device, std::u16string& out) {
  const std::int32_t status = enter_call("GetId");
  if (status >= 0) out = object_of(device.native()).id;
  return status;
}

std::int32_t read_endpoint_name(const AudioDevice& device, std::u16string& out) {
  const std::u16string& id = object_of(device.native()).id;
  const std::int32_t status = enter_call("OpenPropertyStore", id);
  if (status < 0) return status;
  auto name = hosted::endpoint_name_of(registry(), id);
  if (!name) return status_unexpected;
  out = std::move(*name);
  return status;
}

std::int32_t read_peak_value(const AudioDevice& device, float& out) {
  const std::u16string& id = object_of(device.native()).id;
  const std::int32_t status = enter_call("GetPeakValue", id);
  if (status < 0) return status;
  if (!is_active(id)) return status_device_invalidated;
  out = hosted::peak_at(registry(), id, steady_now_ns());
  return status;
}

std::int32_t activate_volume(const AudioDevice& device, EndpointVolume& out) {
  const std::u16string& id = object_of(device.native()).id;
  const std::int32_t status = enter_call("Activate", id);
  if (status < 0) return status;
  if (!is_active(id)) return status_device_invalidated;
  hold({id, {}, {}}, out);
  return status;
}

std::int32_t get_volume_level(const EndpointVolume& volume, float& out) {
  const std::u16string& id = object_of(volume.native()).id;
  const std::int32_t status = enter_call("GetMasterVolumeLevelScalar", id);
  if (status < 0) return status;
  if (!is_active(id)) return status_device_invalidated;
  out = hosted::volume_of(registry(), id);
  return status;
}

std::int32_t set_volume_level(const EndpointVolume& volume, float level) {
  const hosted::RegistryChange turn = hosted::begin_registry_change();
  const std::u16string& id = object_of(volume.native()).id;
  const std::int32_t status = enter_call("SetMasterVolumeLevelScalar", id);
  if (status < 0) return status;
  if (!(level >= 0 && level <= 1)) return status_invalid_argument;
  if (!is_active(id)) return status_device_invalidated;
  hosted::RegistryTree before = registry();
  hosted::put_volume(hosted::machine_state().registry, id, level);
  return finish_change(std::move(before), status);
}

std::int32_t get_mute(const EndpointVolume& volume, bool& out) {
  const std::u16string& id = object_of(volume.native()).id;
  const std::int32_t status = enter_call("GetMute", id);
  if (status < 0) return status;
  if (!is_active(id)) return status_device_invalidated;
  out = hosted::muted_of(registry(), id);
  return status;
}

std::int32_t set_mute(const EndpointVolume& volume, bool muted) {
  const hosted::RegistryChange turn = hosted::begin_registry_change();
  const std::u16string& id = object_of(volume.native()).id;
  const std::int32_t status = enter_call("SetMute", id);
  if (status < 0) return status;
  if (!is_active(id)) return status_device_invalidated;
  if (hosted::muted_of(registry(), id) == muted) return status_nothing_changed;
  hosted::RegistryTree before = registry();
  hosted::put_muted(hosted::machine_state().registry, id, muted);
  return finish_change(std::move(before), status);
}

std::int32_t list_sessions(const AudioDevice& device, AudioSessionList& out, std::int32_t& count) {
  const std::u16string& id = object_of(device.native()).id;
  const std::int32_t status = enter_call("GetSessionEnumerator", id);
  if (status < 0) return status;
  if (!is_active(id)) return status_device_invalidated;
  hosted::AudioObject list{id, {}, hosted::sessions_of(registry(), id)};
  count = static_cast<std::int32_t>(list.sessions.size());
  hold(std::move(list), out);
  return status;
}

std::int32_t read_session(const AudioSessionList& list, std::int32_t index, AudioSession& out) {
  const std::int32_t status = enter_call("GetSession", number_text(index));
  if (status < 0) return status;
  const auto& sessions = object_of(list.native()).sessions;
  if (index < 0 || static_cast<std::size_t>(index) >= sessions.size()) return status_invalid_argument;
  out = sessions[static_cast<std::size_t>(index)];
  if (out.state != session_active) out.process_id = 0;
  return status;
}

}  // namespace velmora
