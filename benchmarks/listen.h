/* What the plain servers of the benchmarks have alike. */
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>

enum { longest_backlog = 0x7fffffff };

/* A socket that listens on 127.0.0.1; negative on failure. The caller keeps it for as long as the process
 * lives. */
static inline int listen_on(unsigned short port) {
  const int listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  const int on = 1;
  struct sockaddr_in address;
  memset(&address, 0, sizeof address);
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (listener < 0 || setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      bind(listener, (const struct sockaddr*)&address, sizeof address) != 0 ||
      listen(listener, longest_backlog) != 0) {
    return -1;
  }
  return listener;
}
