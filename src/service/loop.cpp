#include "service/loop.h"

#include "service/console.h"

namespace velmora {

void serve_until_stopped(const Socket& listener, ServiceState& state) {
  while (!stop_requested) {
    if (wait_readable(listener, select_timeout_us).count <= 0) continue;
    Socket connection;
    if (accept_connection(listener, connection) != 0) continue;
    handle_connection(connection, state);
    shutdown_both(connection);
  }
}

}  // namespace velmora
