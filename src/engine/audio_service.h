// Stops the Windows audio service with what depends on it, and starts all of it again: an endpoint's effect
// chain is read when the audio service starts.
#pragma once

#include <cstdint>
#include <string>

#include "platform/services.h"

namespace velmora {

// Looks every 100 ms, 100 times at most, whether the service is in a state (service_stopped,
// service_running). False when it does not come to it in time (10 s), and at once when it cannot be asked.
[[nodiscard]] bool wait_for_service_state(const Service& service, std::uint32_t wanted);

// 0: the service runs again. Otherwise a status value (base/status.h). `detail` always says in English what
// happened. Services that depend on it and ran before are started again in any case, once they have been
// looked for; what becomes of them is not told, and they are stopped and started in the order in which the
// system names them. It wants elevation, and blocks: it polls for up to 10 s for each dependent service and
// 20 s for the audio service, and each stop and start may itself take 30 s in the manager. A process that
// ends meanwhile leaves the services stopped.
[[nodiscard]] std::int32_t restart_audio_service(std::string& detail);

}  // namespace velmora
