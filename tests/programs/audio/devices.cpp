#include "devices.h"

#include <cstring>
#include <utility>

#include "calls.h"
#include "sessions.h"
#include "volume.h"

#include <propidl.h>
#include <propsys.h>

namespace velmora::audio_server {
namespace {

constexpr PROPERTYKEY friendly_name_key = {
    {0xA45C254E, 0xDF1C, 0x4EFD, {0x80, 0x20, 0x67, 0xD1, 0x46, 0xA8, 0x50, 0xE0}}, 14};
constexpr HRESULT status_not_found = static_cast<HRESULT>(0x80070490u);
constexpr HRESULT status_device_gone = static_cast<HRESULT>(0x88890004u);  // AUDCLNT_E_DEVICE_INVALIDATED

class PropertyStore final : public Object<IPropertyStore> {
 public:
  explicit PropertyStore(Endpoint endpoint) : endpoint_(std::move(endpoint)) {}

  HRESULT STDMETHODCALLTYPE GetCount(DWORD* out) override {
    return call("IPropertyStore.GetCount").of(endpoint_.id).report(out, DWORD{77}, [&] {
      return DWORD{endpoint_.name.type == VT_EMPTY ? 0u : 1u};
    });
  }
  HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* out) override {
    Call asked = call("IPropertyStore.GetValue").of(endpoint_.id);
    asked.with("key", guid_text(key.fmtid) + "," + std::to_string(key.pid));
    const auto clear = [out] {
      if (out != nullptr) PropVariantInit(out);
    };
    clear();
    return asked.answer([&]() -> HRESULT { return out == nullptr ? E_POINTER : value_of(key, *out); }, clear);
  }
  VELMORA_NOT_IMPLEMENTED(IPropertyStore, GetAt, DWORD, PROPERTYKEY*)
  VELMORA_NOT_IMPLEMENTED(IPropertyStore, SetValue, REFPROPERTYKEY, REFPROPVARIANT)
  VELMORA_NOT_IMPLEMENTED(IPropertyStore, Commit)

 private:
  bool is(REFIID id) const override { return id == __uuidof(IPropertyStore); }
  HRESULT value_of(REFPROPERTYKEY key, PROPVARIANT& out) const {
    // A property that is not there is an empty value and a success.
    if (key.fmtid != friendly_name_key.fmtid || key.pid != friendly_name_key.pid) return S_OK;
    out.vt = endpoint_.name.type;
    switch (endpoint_.name.type) {
      case VT_LPWSTR:
        if (endpoint_.name.text) out.pwszVal = allocate_text(*endpoint_.name.text);
        break;
      case VT_LPSTR:
        out.pszVal = static_cast<char*>(allocate(sizeof "a narrow name"));
        std::memcpy(out.pszVal, "a narrow name", sizeof "a narrow name");
        break;
      case VT_CLSID:
        out.puuid = static_cast<GUID*>(allocate(sizeof(GUID)));
        *out.puuid = friendly_name_key.fmtid;
        break;
      case VT_UI4:
        // Whoever takes this for a pointer without looking at the type falls over it.
        out.ulVal = 77;
        break;
      default: break;
    }
    return S_OK;
  }

  Endpoint endpoint_;
};

class Device final : public Object<IMMDevice> {
 public:
  explicit Device(Endpoint endpoint) : endpoint_(std::move(endpoint)) {}

  HRESULT STDMETHODCALLTYPE Activate(REFIID id, DWORD context, PROPVARIANT* params, void** out) override {
    Call asked = call("IMMDevice.Activate").of(endpoint_.id).with("interface", interface_text(id));
    asked.with("context", context).with("params", pointer_text(params));
    return asked.hand_out(out, [&]() -> HRESULT {
      if (endpoint_.state != DEVICE_STATE_ACTIVE) return status_device_gone;
      *out = activated(id);
      return *out == nullptr ? E_NOINTERFACE : S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD access, IPropertyStore** out) override {
    Call asked = call("IMMDevice.OpenPropertyStore").of(endpoint_.id).with("access", access);
    return asked.hand_out(out, [&]() -> HRESULT {
      if (access != STGM_READ) return E_ACCESSDENIED;
      *out = new PropertyStore(endpoint_);
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE GetId(LPWSTR* out) override {
    return call("IMMDevice.GetId").of(endpoint_.id).hand_out(out, [&] {
      *out = allocate_text(endpoint_.id);
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE GetState(DWORD* out) override {
    return call("IMMDevice.GetState").of(endpoint_.id).report(out, DWORD{77}, [&] {
      return DWORD{endpoint_.state};
    });
  }

 private:
  bool is(REFIID id) const override { return id == __uuidof(IMMDevice); }
  [[nodiscard]] void* activated(REFIID id) const {
    if (id == __uuidof(IAudioEndpointVolume)) return make_volume(endpoint_);
    if (id == meter_interface_id) return make_meter(endpoint_);
    if (id == __uuidof(IAudioSessionManager2)) return make_session_manager(endpoint_);
    return nullptr;
  }

  Endpoint endpoint_;
};

class Collection final : public Object<IMMDeviceCollection> {
 public:
  Collection(int flow, std::vector<Endpoint> endpoints) : flow_(flow), endpoints_(std::move(endpoints)) {}

  HRESULT STDMETHODCALLTYPE GetCount(UINT* out) override {
    return call("IMMDeviceCollection.GetCount").with("flow", flow_).report(out, 77u, [&] {
      return static_cast<UINT>(endpoints_.size());
    });
  }
  HRESULT STDMETHODCALLTYPE Item(UINT index, IMMDevice** out) override {
    Call asked = call("IMMDeviceCollection.Item").with("flow", flow_).with("index", index);
    return asked.hand_out(out, [&]() -> HRESULT {
      if (index >= endpoints_.size()) return E_INVALIDARG;
      *out = new Device(endpoints_[index]);
      return S_OK;
    });
  }

 private:
  bool is(REFIID id) const override { return id == __uuidof(IMMDeviceCollection); }

  int flow_;
  std::vector<Endpoint> endpoints_;
};

const Endpoint* endpoint_with(const std::wstring& id) {
  for (const Endpoint& endpoint : state().script.endpoints) {
    if (endpoint.id == id) return &endpoint;
  }
  return nullptr;
}

class Enumerator final : public Object<IMMDeviceEnumerator> {
 public:
  HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow flow, DWORD states,
                                               IMMDeviceCollection** out) override {
    Call asked = call("IMMDeviceEnumerator.EnumAudioEndpoints").with("flow", flow).with("states", states);
    return asked.hand_out(out, [&]() -> HRESULT {
      if (flow < 0 || flow >= EDataFlow_enum_count) return E_INVALIDARG;
      if (states == 0 || (states & ~DWORD{DEVICE_STATEMASK_ALL}) != 0) return E_INVALIDARG;
      std::vector<Endpoint> listed;
      for (const Endpoint& endpoint : state().script.endpoints) {
        if ((flow == eAll || endpoint.flow == flow) && (endpoint.state & states) != 0)
          listed.push_back(endpoint);
      }
      *out = new Collection(flow, std::move(listed));
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow flow, ERole role, IMMDevice** out) override {
    Call asked = call("IMMDeviceEnumerator.GetDefaultAudioEndpoint").with("flow", flow).with("role", role);
    return asked.hand_out(out, [&]() -> HRESULT {
      if ((flow != eRender && flow != eCapture) || role < 0 || role >= ERole_enum_count) return E_INVALIDARG;
      const std::optional<std::wstring>& id = state().script.defaults[flow];
      if (!id) return status_not_found;
      *out = new Device(*endpoint_with(*id));
      return S_OK;
    });
  }
  HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR id, IMMDevice** out) override {
    Call asked = call("IMMDeviceEnumerator.GetDevice").with("id", id == nullptr ? "null" : quoted(id));
    return asked.hand_out(out, [&]() -> HRESULT {
      if (id == nullptr) return E_POINTER;
      const Endpoint* const endpoint = endpoint_with(id);
      if (endpoint == nullptr) return status_not_found;
      *out = new Device(*endpoint);
      return S_OK;
    });
  }
  VELMORA_NOT_IMPLEMENTED(IMMDeviceEnumerator, RegisterEndpointNotificationCallback, IMMNotificationClient*)
  VELMORA_NOT_IMPLEMENTED(IMMDeviceEnumerator, UnregisterEndpointNotificationCallback, IMMNotificationClient*)

 private:
  bool is(REFIID id) const override { return id == __uuidof(IMMDeviceEnumerator); }
};

}  // namespace

IMMDeviceEnumerator* make_enumerator() { return new Enumerator; }

}  // namespace velmora::audio_server
