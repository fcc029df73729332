#include "platform/audio_endpoints.h"

#include <utility>

#include "base/status.h"
#include "platform/windows/native.h"

#include <audiopolicy.h>
#include <endpointvolume.h>
#include <mmdeviceapi.h>
#include <objbase.h>
#include <propidl.h>

namespace velmora {
namespace {

static_assert(static_cast<int>(EndpointFlow::render) == eRender);
static_assert(static_cast<int>(EndpointFlow::capture) == eCapture);
static_assert(session_active == AudioSessionStateActive);
static_assert(status_unexpected == E_UNEXPECTED && status_out_of_memory == E_OUTOFMEMORY);

// IAudioMeterInformation as published in endpointvolume.h. mingw-w64's header only declares its name.
struct MeterInterface;
struct MeterFunctions {
  HRESULT(STDMETHODCALLTYPE* query_interface)(MeterInterface*, REFIID, void**);
  ULONG(STDMETHODCALLTYPE* add_ref)(MeterInterface*);
  ULONG(STDMETHODCALLTYPE* release)(MeterInterface*);
  HRESULT(STDMETHODCALLTYPE* get_peak_value)(MeterInterface*, float*);
};
struct MeterInterface {
  const MeterFunctions* functions;
};
constexpr IID meter_interface_id = {
    0xC02216F6, 0x8C67, 0x4B5B, {0x9D, 0x00, 0xD0, 0x08, 0xE7, 0x3E, 0x00, 0x64}};

// The PROPERTYKEY of the friendly name (functiondiscoverykeys_devpkey.h).
constexpr PROPERTYKEY friendly_name_key = {
    {0xA45C254E, 0xDF1C, 0x4EFD, {0x80, 0x20, 0x67, 0xD1, 0x46, 0xA8, 0x50, 0xE0}}, 14};

template <typename Interface>
Interface* pointer_of(std::uintptr_t native) {
  return reinterpret_cast<Interface*>(native);
}

// An interface used within one operation and released at its end.
using AudioObject = Owner<AudioObjectKind<struct AnyInterface>>;

template <typename Interface>
Interface* pointer_of(const AudioObject& object) {
  return pointer_of<Interface>(object.native());
}

// Text allocated by a COM call.
struct ComTextKind {
  using Native = wchar_t*;
  static constexpr Native none = nullptr;
  static void release(Native native) noexcept { CoTaskMemFree(native); }
};
using ComText = Owner<ComTextKind>;

// Owns a property value and what it points to.
struct PropertyValue {
  PropertyValue() { PropVariantInit(&value); }
  PropertyValue(const PropertyValue&) = delete;
  PropertyValue& operator=(const PropertyValue&) = delete;
  ~PropertyValue() { PropVariantClear(&value); }
  PROPVARIANT value;
};

// Takes ownership of an interface pointer. Make the call in a separate statement before this one: argument
// evaluation order could read `pointer` before the call sets it.
template <typename Kind>
std::int32_t take(HRESULT status, void* pointer, Owner<Kind>& out) {
  if (FAILED(status)) return status;
  if (pointer == nullptr) return status_unexpected;
  out = Owner<Kind>(reinterpret_cast<std::uintptr_t>(pointer));
  return status;
}

template <typename Kind>
std::int32_t activate(const AudioDevice& device, REFIID interface_id, Owner<Kind>& out) {
  void* object = nullptr;
  const HRESULT status =
      pointer_of<IMMDevice>(device.native())->Activate(interface_id, CLSCTX_INPROC_SERVER, nullptr, &object);
  return take(status, object, out);
}

}  // namespace

void release_audio_object(std::uintptr_t native) noexcept { pointer_of<IUnknown>(native)->Release(); }

std::int32_t create_device_enumerator(DeviceEnumerator& out) {
  void* object = nullptr;
  const HRESULT status = CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_INPROC_SERVER,
                                          __uuidof(IMMDeviceEnumerator), &object);
  return take(status, object, out);
}

std::int32_t get_default_device(const DeviceEnumerator& enumerator, EndpointFlow flow, AudioDevice& out) {
  IMMDevice* device = nullptr;
  const HRESULT status = pointer_of<IMMDeviceEnumerator>(enumerator.native())
                             ->GetDefaultAudioEndpoint(static_cast<EDataFlow>(flow), eMultimedia, &device);
  return take(status, device, out);
}

std::int32_t get_device(const DeviceEnumerator& enumerator, std::u16string_view id, AudioDevice& out) {
  IMMDevice* device = nullptr;
  const HRESULT status =
      pointer_of<IMMDeviceEnumerator>(enumerator.native())->GetDevice(wide_text(id).c_str(), &device);
  return take(status, device, out);
}

std::int32_t list_active_devices(const DeviceEnumerator& enumerator, EndpointFlow flow, AudioDeviceList& out,
                                 std::uint32_t& count) {
  IMMDeviceCollection* collection = nullptr;
  AudioDeviceList list;
  std::int32_t status =
      pointer_of<IMMDeviceEnumerator>(enumerator.native())
          ->EnumAudioEndpoints(static_cast<EDataFlow>(flow), DEVICE_STATE_ACTIVE, &collection);
  status = take(status, collection, list);
  if (status < 0) return status;
  UINT number = 0;
  status = collection->GetCount(&number);
  if (status < 0) return status;
  out = std::move(list);
  count = number;
  return status;
}

std::int32_t get_listed_device(const AudioDeviceList& list, std::uint32_t index, AudioDevice& out) {
  IMMDevice* device = nullptr;
  const HRESULT status = pointer_of<IMMDeviceCollection>(list.native())->Item(index, &device);
  return take(status, device, out);
}

std::int32_t get_device_id(const AudioDevice& device, std::u16string& out) {
  LPWSTR text = nullptr;
  const HRESULT status = pointer_of<IMMDevice>(device.native())->GetId(&text);
  if (FAILED(status)) return status;
  const ComText id(text);
  if (!id.is_open()) return status_unexpected;
  out = text_of(id.native());
  return status;
}

std::int32_t read_endpoint_name(const AudioDevice& device, std::u16string& out) {
  IPropertyStore* properties = nullptr;
  AudioObject store;
  std::int32_t status = pointer_of<IMMDevice>(device.native())->OpenPropertyStore(STGM_READ, &properties);
  status = take(status, properties, store);
  if (status < 0) return status;
  PropertyValue name;
  status = properties->GetValue(friendly_name_key, &name.value);
  if (status < 0) return status;
  if (name.value.vt != VT_LPWSTR || name.value.pwszVal == nullptr) return status_unexpected;
  out = text_of(name.value.pwszVal);
  return status;
}

std::int32_t read_peak_value(const AudioDevice& device, float& out) {
  AudioObject meter;
  std::int32_t status = activate(device, meter_interface_id, meter);
  if (status < 0) return status;
  float peak = 0;
  auto* const interface_pointer = pointer_of<MeterInterface>(meter);
  status = interface_pointer->functions->get_peak_value(interface_pointer, &peak);
  if (status >= 0) out = peak;
  return status;
}

std::int32_t activate_volume(const AudioDevice& device, EndpointVolume& out) {
  return activate(device, __uuidof(IAudioEndpointVolume), out);
}

std::int32_t get_volume_level(const EndpointVolume& volume, float& out) {
  float level = 0;
  const HRESULT status =
      pointer_of<IAudioEndpointVolume>(volume.native())->GetMasterVolumeLevelScalar(&level);
  if (SUCCEEDED(status)) out = level;
  return status;
}

std::int32_t set_volume_level(const EndpointVolume& volume, float level) {
  return pointer_of<IAudioEndpointVolume>(volume.native())->SetMasterVolumeLevelScalar(level, nullptr);
}

std::int32_t get_mute(const EndpointVolume& volume, bool& out) {
  BOOL muted = FALSE;
  const HRESULT status = pointer_of<IAudioEndpointVolume>(volume.native())->GetMute(&muted);
  if (SUCCEEDED(status)) out = muted != 0;
  return status;
}

std::int32_t set_mute(const EndpointVolume& volume, bool muted) {
  return pointer_of<IAudioEndpointVolume>(volume.native())->SetMute(muted ? TRUE : FALSE, nullptr);
}

std::int32_t list_sessions(const AudioDevice& device, AudioSessionList& out, std::int32_t& count) {
  AudioObject manager;
  std::int32_t status = activate(device, __uuidof(IAudioSessionManager2), manager);
  if (status < 0) return status;
  IAudioSessionEnumerator* sessions = nullptr;
  AudioSessionList list;
  status = pointer_of<IAudioSessionManager2>(manager)->GetSessionEnumerator(&sessions);
  status = take(status, sessions, list);
  if (status < 0) return status;
  int number = 0;
  status = sessions->GetCount(&number);
  if (status < 0) return status;
  out = std::move(list);
  count = number;
  return status;
}

std::int32_t read_session(const AudioSessionList& list, std::int32_t index, AudioSession& out) {
  IAudioSessionControl* control = nullptr;
  AudioObject session;
  std::int32_t status = pointer_of<IAudioSessionEnumerator>(list.native())->GetSession(index, &control);
  status = take(status, control, session);
  if (status < 0) return status;
  AudioSessionState state = AudioSessionStateInactive;
  status = control->GetState(&state);
  if (status < 0) return status;
  DWORD process_id = 0;
  if (state == AudioSessionStateActive) {
    void* object = nullptr;
    AudioObject detailed;
    status = control->QueryInterface(__uuidof(IAudioSessionControl2), &object);
    status = take(status, object, detailed);
    if (status < 0) return status;
    status = pointer_of<IAudioSessionControl2>(detailed)->GetProcessId(&process_id);
    if (status < 0) return status;
  }
  out = {state, process_id};
  return status;
}

}  // namespace velmora
