// The route that binds the effect to an endpoint and lets the audio engine see it. It writes exactly one
// response.
#pragma once

#include "endpoints/selection.h"
#include "http/request.h"
#include "platform/sockets.h"

namespace velmora {

// POST /api/v1/render/apo: binds (`attach`) the effect to the endpoint `endpoint_id`, or to the one that the
// service works on, or unbinds it, and restarts the audio service unless `restart_audio` is false. A failed
// restart stands in the answer: the binding is done by then. It may take tens of seconds
// (engine/audio_service.h).
void post_apo(const Socket& socket, const ApiRequest& request, const EndpointController& controller);

}  // namespace velmora
