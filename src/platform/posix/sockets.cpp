#include "platform/sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/errors.h"

namespace velmora {
namespace {

int descriptor_of(const Socket& socket) { return static_cast<int>(socket.native()); }
Socket own(int descriptor) { return Socket(static_cast<Socket::Native>(descriptor)); }

int last_error() { return winsock_from_errno(errno); }

SocketCount counted(std::int64_t result) { return {result, result < 0 ? last_error() : 0}; }

// Repeats a call after a signal: a stop signal only sets a flag and must not break off an exchange.
template <typename Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace

void SocketKind::release(Native native) noexcept { ::close(static_cast<int>(native)); }

std::optional<int> start_sockets() { return std::nullopt; }
void stop_sockets() {}

std::optional<int> open_tcp_socket(Socket& out) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
  if (descriptor < 0) return last_error();
  out = own(descriptor);
  return std::nullopt;
}

std::optional<int> bind_loopback(const Socket& socket, std::uint16_t port) {
  // Without this, bind fails while old connections are in TIME_WAIT. A second listener is still refused.
  // Winsock's bind behaves like this by default.
  const int on = 1;
  if (setsockopt(descriptor_of(socket), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) return last_error();
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int result = bind(descriptor_of(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  if (result != 0) return last_error();
  return std::nullopt;
}

std::optional<int> listen_at_maximum(const Socket& socket) {
  constexpr int system_backlog = 0x7fffffff;  // the kernel limits it to net.core.somaxconn
  if (listen(descriptor_of(socket), system_backlog) != 0) return last_error();
  return std::nullopt;
}

SocketCount wait_readable(const Socket& listener, std::int64_t timeout_us) {
  pollfd readable{descriptor_of(listener), POLLIN, 0};
  const timespec timeout{timeout_us / 1'000'000, (timeout_us % 1'000'000) * 1000};
  const int count = ppoll(&readable, 1, &timeout, nullptr);
  // select() fails for an invalid descriptor; ppoll() counts it as ready.
  if (count > 0 && (readable.revents & POLLNVAL) != 0) return {-1, winsock_from_errno(ENOTSOCK)};
  return counted(count);
}

std::optional<int> accept_connection(const Socket& listener, Socket& out) {
  const int descriptor =
      uninterrupted([&] { return accept4(descriptor_of(listener), nullptr, nullptr, SOCK_CLOEXEC); });
  if (descriptor < 0) return last_error();
  out = own(descriptor);
  return std::nullopt;
}

SocketCount receive_bytes(const Socket& socket, char* buffer, std::size_t capacity) {
  return counted(uninterrupted([&] { return recv(descriptor_of(socket), buffer, capacity, 0); }));
}

SocketCount send_bytes(const Socket& socket, const char* bytes, std::size_t size) {
  return counted(uninterrupted([&] { return send(descriptor_of(socket), bytes, size, MSG_NOSIGNAL); }));
}

void shutdown_both(const Socket& socket) { shutdown(descriptor_of(socket), SHUT_RDWR); }

}  // namespace velmora
