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
    return volume_call("IAudioEndpointVolume.GetMasterVolumeLevelScalar").tell(out, 0.77f, [&] {
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
    return volume_call("IAudioEndpointVolume.GetMute").tell(out, WINBOOL{TRUE}, [&] {
      return WINBOOL{change().muted.value_or(endpoint_.muted) ? TRUE : FALSE};
    });
  }
  HRESULT STDMETHODCALLTYPE RegisterControlChangeNotify(IAudioEndpointVolumeCallback*) override {
    return unknown("IAudioEndpointVolume.RegisterControlChangeNotify");
  }
  HRESULT STDMETHODCALLTYPE UnregisterControlChangeNotify(IAudioEndpointVolumeCallback*) override {
    return unknown("IAudioEndpointVolume.UnregisterControlChangeNotify");
  }
  HRESULT STDMETHODCALLTYPE GetChannelCount(UINT*) override {
    return unknown("IAudioEndpointVolume.GetChannelCount");
  }
  HRESULT STDMETHODCALLTYPE SetMasterVolumeLevel(float, LPCGUID) override {
    return unknown("IAudioEndpointVolume.SetMasterVolumeLevel");
  }
  HRESULT STDMETHODCALLTYPE GetMasterVolumeLevel(float*) override {
    return unknown("IAudioEndpointVolume.GetMasterVolumeLevel");
  }
  HRESULT STDMETHODCALLTYPE SetChannelVolumeLevel(UINT, float, LPCGUID) override {
    return unknown("IAudioEndpointVolume.SetChannelVolumeLevel");
  }
  HRESULT STDMETHODCALLTYPE SetChannelVolumeLevelScalar(UINT, float, LPCGUID) override {
    return unknown("IAudioEndpointVolume.SetChannelVolumeLevelScalar");
  }
  HRESULT STDMETHODCALLTYPE GetChannelVolumeLevel(UINT, float*) override {
    return unknown("IAudioEndpointVolume.GetChannelVolumeLevel");
  }
  HRESULT STDMETHODCALLTYPE GetChannelVolumeLevelScalar(UINT, float*) override {
    return unknown("IAudioEndpointVolume.GetChannelVolumeLevelScalar");
  }
  HRESULT STDMETHODCALLTYPE GetVolumeStepInfo(UINT*, UINT*) override {
    return unknown("IAudioEndpointVolume.GetVolumeStepInfo");
  }
  HRESULT STDMETHODCALLTYPE VolumeStepUp(LPCGUID) override {
    return unknown("IAudioEndpointVolume.VolumeStepUp");
  }
  HRESULT STDMETHODCALLTYPE VolumeStepDown(LPCGUID) override {
    return unknown("IAudioEndpointVolume.VolumeStepDown");
  }
  HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD*) override {
    return unknown("IAudioEndpointVolume.QueryHardwareSupport");
  }
  HRESULT STDMETHODCALLTYPE GetVolumeRange(float*, float*, float*) override {
    return unknown("IAudioEndpointVolume.GetVolumeRange");
  }

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
    return call("IAudioMeterInformation.GetPeakValue").of(endpoint_.id).tell(out, 0.77f, [&] {
      return endpoint_.peak;
    });
  }
  HRESULT STDMETHODCALLTYPE GetMeteringChannelCount(UINT*) override {
    return unknown("IAudioMeterInformation.GetMeteringChannelCount");
  }
  HRESULT STDMETHODCALLTYPE GetChannelsPeakValues(UINT32, float*) override {
    return unknown("IAudioMeterInformation.GetChannelsPeakValues");
  }
  HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD*) override {
    return unknown("IAudioMeterInformation.QueryHardwareSupport");
  }

 private:
  bool is(REFIID id) const override { return id == meter_interface_id; }

  Endpoint endpoint_;
};

}  // namespace

IAudioEndpointVolume* make_volume(const Endpoint& endpoint) { return new Volume(endpoint); }

MeterInformation* make_meter(const Endpoint& endpoint) { return new Meter(endpoint); }

}  // namespace velmora::audio_server
