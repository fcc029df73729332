// One connection from accept to close: which answer its request gets.
#pragma once

#include "api/service_state.h"
#include "platform/sockets.h"

namespace velmora {

// Reads one request from the connected socket and writes exactly one response. It never closes the socket.
// The checks come in a fixed order: the request is whole, its Host and Origin are local, it is a page, it is
// below /api/, it has the session token, a route takes it.
void handle_connection(const Socket& socket, ServiceState& state);

}  // namespace velmora
