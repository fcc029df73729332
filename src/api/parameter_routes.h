// The two routes that tune the running effect. Each writes exactly one response. Success means that the word
// was written, not that the effect has applied it.
#pragma once

#include "bridge/mapping.h"
#include "http/request.h"
#include "platform/sockets.h"

namespace velmora {

// PUT /api/v1/render/effects/algorithm: a partial update of six values, all checked before publication.
void put_algorithm(const Socket& socket, const ApiRequest& request, ControlBridge& bridge);

// PUT /api/v1/render/effects/footstep: switches the enhancement on or off and sets its strength.
void put_footstep(const Socket& socket, const ApiRequest& request, ControlBridge& bridge);

}  // namespace velmora
