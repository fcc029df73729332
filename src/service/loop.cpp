#include "service/loop.h"

#include "service/console.h"

namespace velmora {

void serve_until_stopped(const Socket& listener, std::uint16_t port, std::string_view session_token,
                         const UiPages& pages, ControlBridge& bridge) {
  while (!stop_requested) {
    if (wait_readable(listener, select_timeout_us).count <= 0) continue;
    Socket connection;
    if (accept_connection(listener, connection) != 0) continue;
    handle_connection(connection, port, session_token, pages, bridge);
    shutdown_both(connection);
  }
}

}  // namespace velmora
