// The route of the status document. It writes exactly one response.
#pragma once

#include "account/account_session.h"
#include "bridge/mapping.h"
#include "endpoints/selection.h"
#include "platform/sockets.h"

namespace velmora {

// GET /api/v1/status. The document shows what could not be read.
void get_status(const Socket& socket, ControlBridge& bridge, const EndpointController& endpoints,
                const AccountSession& session);

}  // namespace velmora
