// The answer of a route that writes the shared record.
#pragma once

#include "bridge/record.h"
#include "platform/sockets.h"

namespace velmora {

// 200 when the record was written, otherwise 503.
void answer_publication(const Socket& socket, BridgeResult result);

}  // namespace velmora
