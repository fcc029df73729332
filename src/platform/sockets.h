// TCP on 127.0.0.1, one function per Winsock call. On failure a call returns its Winsock error code on every
// system (winsock2.h), which Windows may leave at 0. On success it returns no value.
//
// On Windows no socket option is set. Elsewhere only the listener sets address reuse,
// which matches Windows' default.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "platform/owner.h"

namespace velmora {

struct SocketKind {
  using Native = std::uintptr_t;
  static constexpr Native none = ~Native{0};
  static void release(Native native) noexcept;  // closesocket
};
// Owner of one socket. Child processes do not inherit it.
using Socket = Owner<SocketKind>;

// A count of bytes or sockets. A negative count is a failure; `error` is valid only then.
struct SocketCount {
  std::int64_t count;
  int error;
};

// WSAStartup, version 0x202. Pair each success with one stop_sockets (WSACleanup).
[[nodiscard]] std::optional<int> start_sockets();
void stop_sockets();

// socket(AF_INET, SOCK_STREAM, IPPROTO_TCP). `out` is assigned only on success.
[[nodiscard]] std::optional<int> open_tcp_socket(Socket& out);

// Binds to 127.0.0.1 and `port` (1..65535, host order; 0 lets the system choose).
[[nodiscard]] std::optional<int> bind_loopback(const Socket& socket, std::uint16_t port);

// Listens with the longest backlog that the system allows (0x7fffffff).
[[nodiscard]] std::optional<int> listen_at_maximum(const Socket& socket);

// select() on a listening or connected socket: count 1 if readable, 0 after `timeout_us` microseconds. A stop
// signal ends the wait with count -1 and error 10004.
[[nodiscard]] SocketCount wait_readable(const Socket& socket, std::int64_t timeout_us);

// connect() to 127.0.0.1 and `port` (1..65535, host order). Blocks until the system has an answer. 10061
// (WSAECONNREFUSED): nobody listens there.
[[nodiscard]] std::optional<int> connect_loopback(const Socket& socket, std::uint16_t port);

// accept() without the peer's address. `out` is assigned only on success.
[[nodiscard]] std::optional<int> accept_connection(const Socket& listener, Socket& out);

// recv() with flags 0. Count 0: the peer has closed its side. Blocks without limit; signals are retried.
[[nodiscard]] SocketCount receive_bytes(const Socket& socket, char* buffer, std::size_t capacity);

// send() with flags 0. It may send fewer bytes than given. Blocks without limit. If the peer is gone, this
// call fails; the process gets no signal.
[[nodiscard]] SocketCount send_bytes(const Socket& socket, const char* bytes, std::size_t size);

// shutdown() of both directions (SD_BOTH, 2). Errors are ignored: they only mean that the peer is gone.
void shutdown_both(const Socket& socket);

}  // namespace velmora
