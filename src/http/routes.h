// What happens between the accept of a connection and its closing: which answer a request gets.
#pragma once

#include <cstdint>
#include <string>

#include "account/account_state.h"
#include "bridge/mapping.h"
#include "endpoints/selection.h"
#include "platform/sockets.h"

namespace velmora {

// The four pages, as they are served: read and stamped at start, from memory ever after.
struct UiPages {
  std::string index;
  std::string advanced;
  std::string eq_script;
  std::string help;
};

// What a running service answers from. It lives from the start to the end of the loop.
struct ServiceState {
  std::uint16_t port = 0;
  std::string session_token;
  UiPages pages;
  ControlBridge bridge;
  EndpointController endpoints;
  AccountState account;
};

// Reads one request from the connected socket and writes exactly one response. It never closes the socket.
// The checks come in a fixed order: the request is whole, its Host and Origin are local, it is a page, it is
// below /api/, it has the session token, a route takes it.
void handle_connection(const Socket& socket, ServiceState& state);

}  // namespace velmora
