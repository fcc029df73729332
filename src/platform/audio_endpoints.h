// Audio endpoints, their volume, their meters and their sessions, as the Core Audio interfaces tell them
// (mmdeviceapi.h, endpointvolume.h, audiopolicy.h). Results are status values (base/status.h), and those of
// the calls themselves; a success that hands over nothing is turned into status_unexpected. Outputs are
// assigned on success alone, which each positive status is. All of it wants COM to be started on the calling
// thread.
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
// Owners of interface pointers. Each lives on its own: what it was had from may be released before it.
using DeviceEnumerator = Owner<AudioObjectKind<struct DeviceEnumeratorInterface>>;
using AudioDevice = Owner<AudioObjectKind<struct AudioDeviceInterface>>;
using AudioDeviceList = Owner<AudioObjectKind<struct AudioDeviceListInterface>>;
using EndpointVolume = Owner<AudioObjectKind<struct EndpointVolumeInterface>>;
using AudioSessionList = Owner<AudioObjectKind<struct AudioSessionListInterface>>;

// CoCreateInstance of MMDeviceEnumerator, in this process.
[[nodiscard]] std::int32_t create_device_enumerator(DeviceEnumerator& out);

// GetDefaultAudioEndpoint for the role 1 (eMultimedia). status_not_found: the flow has no endpoint.
[[nodiscard]] std::int32_t get_default_device(const DeviceEnumerator& enumerator, EndpointFlow flow,
                                              AudioDevice& out);

// GetDevice: the endpoint with this id, in whatever state it is. status_not_found: there is none.
[[nodiscard]] std::int32_t get_device(const DeviceEnumerator& enumerator, std::u16string_view id,
                                      AudioDevice& out);

// EnumAudioEndpoints for the state 1 (DEVICE_STATE_ACTIVE) and GetCount: a snapshot.
[[nodiscard]] std::int32_t list_active_devices(const DeviceEnumerator& enumerator, EndpointFlow flow,
                                               AudioDeviceList& out, std::uint32_t& count);

// IMMDeviceCollection::Item, `index` from 0.
[[nodiscard]] std::int32_t get_listed_device(const AudioDeviceList& list, std::uint32_t index,
                                             AudioDevice& out);

// IMMDevice::GetId.
[[nodiscard]] std::int32_t get_device_id(const AudioDevice& device, std::u16string& out);

// PKEY_Device_FriendlyName from the device's property store (OpenPropertyStore for reading, GetValue).
// status_unexpected: the property is missing, or is no text (VT_LPWSTR).
[[nodiscard]] std::int32_t read_endpoint_name(const AudioDevice& device, std::u16string& out);

// IAudioMeterInformation::GetPeakValue of the device, as it comes: 0 to 1 by its contract, but not checked.
[[nodiscard]] std::int32_t read_peak_value(const AudioDevice& device, float& out);

// Activates IAudioEndpointVolume. An endpoint that is not active fails.
[[nodiscard]] std::int32_t activate_volume(const AudioDevice& device, EndpointVolume& out);

// Get- and SetMasterVolumeLevelScalar: 0 to 1. Setting names no event context.
[[nodiscard]] std::int32_t get_volume_level(const EndpointVolume& volume, float& out);
[[nodiscard]] std::int32_t set_volume_level(const EndpointVolume& volume, float level);

// GetMute and SetMute. Setting what is set already is a success.
[[nodiscard]] std::int32_t get_mute(const EndpointVolume& volume, bool& out);
[[nodiscard]] std::int32_t set_mute(const EndpointVolume& volume, bool muted);

// Activates IAudioSessionManager2, GetSessionEnumerator and GetCount: a snapshot of the device's sessions.
[[nodiscard]] std::int32_t list_sessions(const AudioDevice& device, AudioSessionList& out,
                                         std::int32_t& count);

// AudioSessionState (audiosessiontypes.h): 0 inactive, 2 expired.
constexpr std::int32_t session_active = 1;

struct AudioSession {
  std::int32_t state = 0;
  // Of the process that made the session; 0 for the system's own sounds, and in a session that is not active,
  // which is not asked for it.
  std::uint32_t process_id = 0;
};

// GetSession (`index` from 0), GetState and, of an active session, IAudioSessionControl2::GetProcessId.
[[nodiscard]] std::int32_t read_session(const AudioSessionList& list, std::int32_t index, AudioSession& out);

}  // namespace velmora
