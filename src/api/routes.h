// Answers one connection: reads its request and selects the route.
#pragma once

#include "api/service_state.h"
#include "platform/sockets.h"

namespace velmora {

// Reads one request from the connected socket and writes exactly one response. Never closes the socket. The
// order of checks is fixed: complete request, local Host and Origin, page, API path, session token, route.
void handle_connection(const Socket& socket, ServiceState& state);

}  // namespace velmora
