// Restarts the Windows audio service and the services that depend on it: a restart makes it read the effect
// chains of the endpoints again.
#pragma once

#include <cstdint>
#include <string>

#include "platform/services.h"

namespace velmora {

// Polls every 100 ms, up to 100 times (10 s), until the service is in state `wanted` (service_stopped,
// service_running). Returns false on timeout, or at once if the state cannot be queried.
[[nodiscard]] bool wait_for_service_state(const Service& service, std::uint32_t wanted);

// Returns 0 if the service runs again, otherwise a status value (base/status.h). `detail` always describes
// the outcome in English.
//
// Running services that depend on it are stopped first and started again afterwards, even on failure. They
// are handled in the order in which the system lists them, and their errors are ignored.
//
// Requires elevation, and blocks. It polls for up to 10 s per dependent service and 20 s for the audio
// service. Each stop and start may also take 30 s in the service manager. If the process ends meanwhile, all
// of these services stay stopped.
[[nodiscard]] std::int32_t restart_audio_service(std::string& detail);

}  // namespace velmora
