#include "platform/sockets.h"

#include <algorithm>
#include <limits>

#include "platform/windows/native.h"

namespace velmora {
namespace {

static_assert(sizeof(SOCKET) == sizeof(SocketKind::Native));
static_assert(INVALID_SOCKET == SocketKind::none);

constexpr int system_backlog = 0x7fffffff;

SOCKET socket_of(const Socket& socket) { return socket.native(); }

// Winsock sockets are inheritable by default; ours must not be. If this fails, the socket still works. The
// other flag is clear already. Naming it too saves time under Wine, which otherwise reads it first to keep
// it.
Socket own(SOCKET socket) {
  SetHandleInformation(handle_of(socket), HANDLE_FLAG_INHERIT | HANDLE_FLAG_PROTECT_FROM_CLOSE, 0);
  return Socket(socket);
}

sockaddr_in loopback_address(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

SocketCount counted(int result) { return {result, result < 0 ? WSAGetLastError() : 0}; }

int clamped_size(std::size_t size) {
  return static_cast<int>(std::min<std::size_t>(size, std::numeric_limits<int>::max()));
}

}  // namespace

void SocketKind::release(Native native) noexcept { closesocket(native); }

std::optional<int> start_sockets() {
  WSADATA data;
  const int error = WSAStartup(0x202, &data);
  if (error != 0) return error;
  return std::nullopt;
}

void stop_sockets() { WSACleanup(); }

std::optional<int> open_tcp_socket(Socket& out) {
  const SOCKET socket = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (socket == INVALID_SOCKET) return WSAGetLastError();
  out = own(socket);
  return std::nullopt;
}

std::optional<int> bind_loopback(const Socket& socket, std::uint16_t port) {
  const sockaddr_in address = loopback_address(port);
  const int result = bind(socket_of(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  if (result != 0) return WSAGetLastError();
  return std::nullopt;
}

std::optional<int> listen_at_maximum(const Socket& socket) {
  if (listen(socket_of(socket), system_backlog) != 0) return WSAGetLastError();
  return std::nullopt;
}

SocketCount wait_readable(const Socket& listener, std::int64_t timeout_us) {
  fd_set readable;
  readable.fd_count = 1;
  readable.fd_array[0] = socket_of(listener);
  timeval timeout{static_cast<long>(timeout_us / 1'000'000), static_cast<long>(timeout_us % 1'000'000)};
  return counted(select(0, &readable, nullptr, nullptr, &timeout));
}

std::optional<int> connect_loopback(const Socket& socket, std::uint16_t port) {
  const sockaddr_in address = loopback_address(port);
  const int result = connect(socket_of(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  if (result != 0) return WSAGetLastError();
  return std::nullopt;
}

std::optional<int> accept_connection(const Socket& listener, Socket& out) {
  const SOCKET socket = accept(socket_of(listener), nullptr, nullptr);
  if (socket == INVALID_SOCKET) return WSAGetLastError();
  out = own(socket);
  return std::nullopt;
}

SocketCount receive_bytes(const Socket& socket, char* buffer, std::size_t capacity) {
  return counted(recv(socket_of(socket), buffer, clamped_size(capacity), 0));
}

SocketCount send_bytes(const Socket& socket, const char* bytes, std::size_t size) {
  return counted(send(socket_of(socket), bytes, clamped_size(size), 0));
}

void shutdown_both(const Socket& socket) { shutdown(socket_of(socket), SD_BOTH); }

}  // namespace velmora
