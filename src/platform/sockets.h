// TCP on 127.0.0.1, one function for each Winsock call. A call that fails returns its Winsock error code on
// every system (winsock2.h), which Windows may leave at 0; one that succeeds returns no value. No socket
// option is set on Windows; elsewhere the listener takes address reuse alone, which there means what Windows
// does by default.
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
// Owner of one socket. Not inherited by programs that we start.
using Socket = Owner<SocketKind>;

// How many bytes or sockets a call gave. A count below 0 is a failure, and only then `error` has a meaning.
struct SocketCount {
  std::int64_t count;
  int error;
};

// WSAStartup with version word 0x202. Each success is paired with one stop_sockets (WSACleanup).
[[nodiscard]] std::optional<int> start_sockets();
void stop_sockets();

// socket(AF_INET, SOCK_STREAM, IPPROTO_TCP). `out` is assigned on success alone.
[[nodiscard]] std::optional<int> open_tcp_socket(Socket& out);

// bind to 127.0.0.1 and `port` (1..65535, host order; 0 lets the system choose).
[[nodiscard]] std::optional<int> bind_loopback(const Socket& socket, std::uint16_t port);

// listen with the system's longest backlog (0x7fffffff).
[[nodiscard]] std::optional<int> listen_at_maximum(const Socket& socket);

// select on one listening socket for readability: count 1 when readable, 0 after `timeout_us` microseconds.
// A stop signal ends the wait early with count -1 and error 10004.
[[nodiscard]] SocketCount wait_readable(const Socket& listener, std::int64_t timeout_us);

// accept without the peer's address. `out` is assigned on success alone.
[[nodiscard]] std::optional<int> accept_connection(const Socket& listener, Socket& out);

// recv with flags 0. Count 0: the peer has closed its side. Blocks without a limit; a signal never ends it.
[[nodiscard]] SocketCount receive_bytes(const Socket& socket, char* buffer, std::size_t capacity);

// send with flags 0, which may take fewer bytes than offered. Blocks without a limit. A peer that is gone is
// an error of this call, never a signal to the process.
[[nodiscard]] SocketCount send_bytes(const Socket& socket, const char* bytes, std::size_t size);

// shutdown of both directions (SD_BOTH, 2). Its failure means that the peer has gone, so it is not told.
void shutdown_both(const Socket& socket);

}  // namespace velmora
