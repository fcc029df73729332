// The interfaces of sessions.
#pragma once

#include "script.h"

#include <windows.h>

#include <audiopolicy.h>

namespace velmora::audio_server {

// With one reference, which is the caller's.
[[nodiscard]] IAudioSessionManager2* make_session_manager(const Endpoint& endpoint);

}  // namespace velmora::audio_server
