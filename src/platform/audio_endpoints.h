// Audio endpoints with their volume, meters and sessions, as reported by the Core Audio
// interfaces (mmdeviceapi.h, endpointvolume.h, audiopolicy.h).
//
// The functions return the status of the underlying call (base/status.h). If a call succeeds but returns no
// object, the status is status_unexpected. Outputs are assigned only on success, which includes positive
// status values. The calling thread must have started COM.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/owner.h"

namespace velmora {

// EDataFlow.
enum class EndpointFlow : std::int32_t { render = 0, capture = 1 };

void release_audio_object(std::uintptr_t native) noexcept;  // IUnknown::Release

template <typename Interface>
struct AudioObjectKind {
  using Native = std::uintptr_t;
  static constexpr Native none = 0;
  static void release(Native native) noexcept { release_audio_object(native); }
};
// Owners of interface pointers. Each may outlive the object that it came from.
using DeviceEnumerator = Owner<AudioObjectKind<struct DeviceEnumeratorInterface>>;
using AudioDevice = Owner<AudioObjectKind<struct AudioDeviceInterface>>;
using AudioDeviceList = Owner<AudioObjectKind<struct AudioDeviceListInterface>>;
using EndpointVolume = Owner<AudioObjectKind<struct EndpointVolumeInterface>>;
using AudioSessionList = Owner<AudioObjectKind<struct AudioSessionListInterface>>;

// CoCreateInstance of MMDeviceEnumerator, in-process.
[[nodiscard]] std::int32_t create_device_enumerator(DeviceEnumerator& out);

// GetDefaultAudioEndpoint for role 1 (eMultimedia). status_not_found: no endpoint for this flow.
[[nodiscard]] std::int32_t get_default_device(const DeviceEnumerator& enumerator, EndpointFlow flow,
                                              AudioDevice& out);

// GetDevice: finds an endpoint by id, in any state. status_not_found: unknown id.
[[nodiscard]] std::int32_t get_device(const DeviceEnumerator& enumerator, std::u16string_view id,
                                      AudioDevice& out);

// EnumAudioEndpoints with state 1 (DEVICE_STATE_ACTIVE), and GetCount. The list is a snapshot.
[[nodiscard]] std::int32_t list_active_devices(const DeviceEnumerator& enumerator, EndpointFlow flow,
                                               AudioDeviceList& out, std::uint32_t& count);

// IMMDeviceCollection::Item, `index` from 0.
[[nodiscard]] std::int32_t get_listed_device(const AudioDeviceList& list, std::uint32_t index,
                                             AudioDevice& out);

// IMMDevice::GetId.
[[nodiscard]] std::int32_t get_device_id(const AudioDevice& device, std::u16string& out);

// Reads PKEY_Device_FriendlyName from the device's property store (OpenPropertyStore for reading, GetValue).
// status_unexpected: the property is missing or is not text (VT_LPWSTR).
[[nodiscard]] std::int32_t read_endpoint_name(const AudioDevice& device, std::u16string& out);

// IAudioMeterInformation::GetPeakValue, unchecked. Core Audio documents 0 to 1.
[[nodiscard]] std::int32_t read_peak_value(const AudioDevice& device, float& out);

// Activates IAudioEndpointVolume. Fails if the endpoint is not active.
[[nodiscard]] std::int32_t activate_volume(const AudioDevice& device, EndpointVolume& out);

// Get- and SetMasterVolumeLevelScalar: 0 to 1. Setting passes no event context.
[[nodiscard]] std::int32_t get_volume_level(const EndpointVolume& volume, float& out);
[[nodiscard]] std::int32_t set_volume_level(const EndpointVolume& volume, float level);

// GetMute and SetMute. Setting the present value succeeds.
[[nodiscard]] std::int32_t get_mute(const EndpointVolume& volume, bool& out);
[[nodiscard]] std::int32_t set_mute(const EndpointVolume& volume, bool muted);

// Activates IAudioSessionManager2, then GetSessionEnumerator and GetCount. The list is a snapshot.
[[nodiscard]] std::int32_t list_sessions(const AudioDevice& device, AudioSessionList& out,
                                         std::int32_t& count);

// AudioSessionState (audiosessiontypes.h): 0 inactive, 2 expired.
constexpr std::int32_t session_active = 1;

struct AudioSession {
  std::int32_t state = 0;
  // The process that created the session. 0 for system sounds, and for sessions that are not active (they are
  // not queried for it).
  std::uint32_t process_id = 0;
};

// GetSession (`index` from 0) and GetState, and for active sessions IAudioSessionControl2::GetProcessId.
[[nodiscard]] std::int32_t read_session(const AudioSessionList& list, std::int32_t index, AudioSession& out);

}  // namespace velmora
