// What happens between the accept of a connection and its closing: which answer a request gets.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "bridge/mapping.h"
#include "platform/sockets.h"

namespace velmora {

// The four pages, as they are served: read and stamped at start, from memory ever after.
struct UiPages {
  std::string index;
  std::string advanced;
  std::string eq_script;
  std::string help;
};

// Reads one request from the connected socket and writes exactly one response. It never closes the socket.
// The checks come in a fixed order: the request is whole, its Host and Origin are local, it is a page, it is
// below /api/, it has the session token, a route takes it.
void handle_connection(const Socket& socket, std::uint16_t port, std::string_view session_token,
                       const UiPages& pages, ControlBridge& bridge);

}  // namespace velmora
