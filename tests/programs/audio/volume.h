// The interfaces of volume and meter.
#pragma once

#include "script.h"

#include <windows.h>

#include <endpointvolume.h>

namespace velmora::audio_server {

// As endpointvolume.h publishes it; mingw-w64's header only names it.
struct MeterInformation : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetPeakValue(float* peak) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetMeteringChannelCount(UINT* count) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetChannelsPeakValues(UINT32 count, float* peaks) = 0;
  virtual HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD* mask) = 0;
};

// Each with one reference, which is the caller's.
[[nodiscard]] IAudioEndpointVolume* make_volume(const Endpoint& endpoint);
[[nodiscard]] MeterInformation* make_meter(const Endpoint& endpoint);

}  // namespace velmora::audio_server
