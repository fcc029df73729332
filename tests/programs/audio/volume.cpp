#include "volume.h"

#include <utility>

#include "calls.h"

namespace velmora::audio_server {
namespace {

class Volume final : public Object<IAudioEndpointVolume> {
 public:
  explicit Volume(Endpoint endpoint) : endpoint_(std::move(endpoint)) {}

  HRESULT STDMETHODCALLTYPE SetMasterVolumeLevelScalar(float level, LPCGUID context) override {
    Call asked = volume_call("IAudioEndpointVolume.SetMasterVolumeLevelScalar");
    asked.with("level", real_text(level)).with("context", pointer_text(context));
    return asked.answer(
        [&]() -> HRESULT {
          if (!(level >= 0 && level <= 1)) return E_INVALIDARG;
          change().level = level;
          return S_OK;
        },
        [] {});
  }
  HRESULT STDMETHODCALLTYPE GetMasterVolumeLevelScalar(float* out) override {
    return volume_call("IAudioEndpointVolume.GetMasterVolumeLevelScalar").report(out, 0.77f, [&] {
      return change().level.value_or(endpoint_.level);
    });
  }
  HRESULT STDMETHODCALLTYPE SetMute(WINBOOL muted, LPCGUID context) override {
    Call asked = volume_call("IAudioEndpointVolume.SetMute");
    asked.with("muted", muted).with("context", pointer_text(context));
    return asked.answer(
        [&]() -> HRESULT {
          const bool before = change().muted.value_or(endpoint_.muted);
          change().muted = muted != 0;
          return before == (muted != 0) ? S_FALSE : S_OK;
        },
        [] {});
  }
  HRESULT STDMETHODCALLTYPE GetMute(WINBOOL* out) override {
    return volume_call("IAudioEndpointVolume.GetMute").report(out, WINBOOL{TRUE}, [&] {
      return WINBOOL{change().muted.value_or(endpoint_.muted) ? TRUE : FALSE};
    });
  }
  VELMORA_NOT_IMPLEMENTED(IAudioEndpointVolume, RegisterControlChangeNotify, IAudioEndpointVolumeCallback*)
  VELMORA_NOT_IMPLEMENTED(IAudioEndpointVolume, UnregisterControlChangeNotify, IAudioEndpointVolumeCallback*)
  VELMORA_NOT_IMPLEMENTED(IAudioEndpointVolume, GetChannelCount, UINT*)
  VELMORA_NOT_IMPLEMENTED(IAudioEndpointVolume, SetMasterVolumeLevel, float, LPCGUID)
  VELMORA_NOT_IMPLEMENTED(IAudioEndpointVolume, GetMasterVolumeLevel, float*)
  VELMORA_NOT_IMPLEMENTED(IAudioEndpointVolume, SetChannelVolumeLevel, UINT, float, LPCGUID)
  VELMORA_NOT_IMPLEMENTED(IAudioEndpointVolume, SetChannelVolumeLevelScalar, UINT, float, LPCGUID)
  VELMORA_NOT_IMPLEMENTED(IAudioEndpointVolume, GetChannelVolumeLevel, UINT, float*)
  VELMORA_NOT_IMPLEMENTED(IAudioEndpointVolume, GetChannelVolumeLevelScalar, UINT, float*)
  VELMORA_NOT_IMPLEMENTED(IAudioEndpointVolume, GetVolumeStepInfo, UINT*, UINT*)
  VELMORA_NOT_IMPLEMENTED(IAudioEndpointVolume, VolumeStepUp, LPCGUID)
  VELMORA_NOT_IMPLEMENTED(IAudioEndpointVolume, VolumeStepDown, LPCGUID)
  VELMORA_NOT_IMPLEMENTED(IAudioEndpointVolume, QueryHardwareSupport, DWORD*)
  VELMORA_NOT_IMPLEMENTED(IAudioEndpointVolume, GetVolumeRange, float*, float*, float*)

 private:
  bool is(REFIID id) const override { return id == __uuidof(IAudioEndpointVolume); }
  [[nodiscard]] Call volume_call(const std::string& operation) const {
    return call(operation).of(endpoint_.id).with("references", state().references);
  }
  [[nodiscard]] Change& change() const { return state().changes[endpoint_.id]; }

  Endpoint endpoint_;
};

class Meter final : public Object<MeterInformation> {
 public:
  explicit Meter(Endpoint endpoint) : endpoint_(std::move(endpoint)) {}

  HRESULT STDMETHODCALLTYPE GetPeakValue(float* out) override {
    return call("IAudioMeterInformation.GetPeakValue").of(endpoint_.id).report(out, 0.77f, [&] {
      return endpoint_.peak;
    });
  }
  VELMORA_NOT_IMPLEMENTED(IAudioMeterInformation, GetMeteringChannelCount, UINT*)
  VELMORA_NOT_IMPLEMENTED(IAudioMeterInformation, GetChannelsPeakValues, UINT32, float*)
  VELMORA_NOT_IMPLEMENTED(IAudioMeterInformation, QueryHardwareSupport, DWORD*)

 private:
  bool is(REFIID id) const override { return id == meter_interface_id; }

  Endpoint endpoint_;
};

}  // namespace

IAudioEndpointVolume* make_volume(const Endpoint& endpoint) { return new Volume(endpoint); }

MeterInformation* make_meter(const Endpoint& endpoint) { return new Meter(endpoint); }

}  // namespace velmora::audio_server
