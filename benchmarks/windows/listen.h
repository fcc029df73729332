/* What the plain Windows servers of the benchmarks have in common. */
#pragma once

#include <winsock2.h>

/* Starts Winsock and returns a socket that listens on 127.0.0.1, or INVALID_SOCKET. The caller keeps it for
 * as long as the process lives. */
static inline SOCKET listen_on(unsigned short port) {
  WSADATA data;
  struct sockaddr_in address = {0};
  if (WSAStartup(0x202, &data) != 0) return INVALID_SOCKET;
  const SOCKET listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (listener == INVALID_SOCKET || bind(listener, (const struct sockaddr*)&address, sizeof address) != 0 ||
      listen(listener, SOMAXCONN) != 0) {
    return INVALID_SOCKET;
  }
  return listener;
}
