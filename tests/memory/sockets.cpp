#include "platform/sockets.h"

#include <algorithm>

#include "memory/system.h"
#include "platform/errors.h"

namespace velmora {
namespace {

memory::Handle& handle_of(const Socket& socket) { return memory::system().handles.at(socket.native()); }

Socket own(memory::Handle handle) { return Socket(memory::add_handle(std::move(handle))); }

}  // namespace

void SocketKind::release(Native native) noexcept {
  const auto& connection = memory::system().handles.at(native).connection;
  if (connection) connection->closed = true;
  memory::system().handles.erase(native);
  static_cast<void>(memory::enter("closesocket"));
}

std::optional<int> start_sockets() {
  if (const auto fault = memory::enter("WSAStartup")) return memory::number_of(fault);
  ++memory::system().sockets_started;
  return std::nullopt;
}

void stop_sockets() {
  static_cast<void>(memory::enter("WSACleanup"));
  --memory::system().sockets_started;
}

std::optional<int> open_tcp_socket(Socket& out) {
  if (const auto fault = memory::enter("socket")) return memory::number_of(fault);
  memory::Handle handle;
  handle.what = "socket";
  out = own(std::move(handle));
  return std::nullopt;
}

std::optional<int> bind_loopback(const Socket& socket, std::uint16_t port) {
  if (const auto fault = memory::enter("bind")) return memory::number_of(fault);
  if (memory::system().ports_of_others.contains(port)) return wsaeaddrinuse;
  handle_of(socket).port = port;
  return std::nullopt;
}

std::optional<int> listen_at_maximum(const Socket& socket) {
  if (const auto fault = memory::enter("listen")) return memory::number_of(fault);
  handle_of(socket).listening = true;
  return std::nullopt;
}

SocketCount wait_readable(const Socket& listener, std::int64_t timeout_us) {
  if (const auto fault = memory::enter("select")) return {-1, memory::number_of(fault)};
  memory::System& machine = memory::system();
  if (handle_of(listener).listening && !machine.backlog.empty()) return {1, 0};
  machine.now_ns += timeout_us * 1000;
  if (machine.on_idle) {
    machine.on_idle();
  } else if (machine.console_handler != nullptr) {
    machine.console_handler(0);
  }
  return {0, 0};
}

std::optional<int> accept_connection(const Socket& listener, Socket& out) {
  if (const auto fault = memory::enter("accept")) return memory::number_of(fault);
  auto& backlog = memory::system().backlog;
  if (!handle_of(listener).listening || backlog.empty()) return wsaewouldblock;
  memory::Handle handle;
  handle.what = "socket";
  handle.connection = backlog.front();
  backlog.pop_front();
  out = own(std::move(handle));
  return std::nullopt;
}

SocketCount receive_bytes(const Socket& socket, char* buffer, std::size_t capacity) {
  memory::Connection& connection = *handle_of(socket).connection;
  if (connection.client_gone) return {-1, wsaeconnreset};
  if (connection.to_service.empty()) {
    // A real socket would block for ever here, which no test wants.
    return connection.client_done ? SocketCount{0, 0} : SocketCount{-1, wsaewouldblock};
  }
  std::string& piece = connection.to_service.front();
  const std::size_t count = std::min(capacity, piece.size());
  std::copy_n(piece.begin(), count, buffer);
  piece.erase(0, count);
  if (piece.empty()) connection.to_service.pop_front();
  return {static_cast<std::int64_t>(count), 0};
}

SocketCount send_bytes(const Socket& socket, const char* bytes, std::size_t size) {
  if (memory::system().on_send) memory::system().on_send();
  if (const auto fault = memory::enter("send")) return {-1, memory::number_of(fault)};
  memory::Connection& connection = *handle_of(socket).connection;
  if (connection.client_gone || connection.shut_down) return {-1, wsaeconnreset};
  if (connection.send_stalls) return {0, 0};
  const std::size_t count = connection.send_limit == 0 ? size : std::min(size, connection.send_limit);
  connection.from_service.append(bytes, count);
  return {static_cast<std::int64_t>(count), 0};
}

void shutdown_both(const Socket& socket) {
  static_cast<void>(memory::enter("shutdown"));
  handle_of(socket).connection->shut_down = true;
}

}  // namespace velmora
