// The route that binds the effect to an endpoint and restarts the audio service. It writes one response.
#pragma once

#include "endpoints/selection.h"
#include "http/request.h"
#include "platform/sockets.h"

namespace velmora {

// POST /api/v1/render/apo: binds (`attach`) or unbinds the effect at `endpoint_id`, or else at the endpoint
// that the service uses. Then restarts the audio service unless `restart_audio` is false. A failed restart is
// part of the answer: the binding is already changed. May take tens of seconds (engine/audio_service.h).
void post_apo(const Socket& socket, const ApiRequest& request, const EndpointController& controller);

}  // namespace velmora
