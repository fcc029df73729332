// The route of the status document. It writes exactly one response.
#pragma once

#include "account/account_session.h"
#include "bridge/mapping.h"
#include "endpoints/selection.h"
#include "platform/sockets.h"

namespace velmora {

// GET /api/v1/status. What could not be read shows in the document.
void get_status(const Socket& socket, ControlBridge& bridge, const EndpointController& endpoints,
                const AccountSession& session);

}  // namespace velmora
