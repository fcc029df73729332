// The two routes by which a person tunes the running effect. Each writes exactly one response. A success
// says that the word was written; what the effect made of it, only the effect can tell.
#pragma once

#include "bridge/mapping.h"
#include "http/request.h"
#include "platform/sockets.h"

namespace velmora {

// PUT /api/v1/render/effects/algorithm: a partial update of six values. All are checked before the one
// publication.
void put_algorithm(const Socket& socket, const ApiRequest& request, ControlBridge& bridge);

// PUT /api/v1/render/effects/footstep: switches the enhancement and sets its strength.
void put_footstep(const Socket& socket, const ApiRequest& request, ControlBridge& bridge);

}  // namespace velmora
