// The interfaces of the enumerator, its collections, devices and their properties.
#pragma once

#include <windows.h>

#include <mmdeviceapi.h>

namespace velmora::audio_server {

// With one reference, which is the caller's. It has the endpoints of the script in state().
[[nodiscard]] IMMDeviceEnumerator* make_enumerator();

}  // namespace velmora::audio_server
