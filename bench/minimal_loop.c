// The least that a server of one exchange for each connection can do: the yardstick of the service. It looks
// at no byte that comes and answers a fixed response.
//
//   velmora_minimal_loop PORT BYTES    on 127.0.0.1, until it is ended; exit 1 when it cannot start
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

enum { piece_bytes = 4096, select_timeout_us = 250000, longest_backlog = 0x7fffffff };

static int listen_on(unsigned short port) {
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

static void answer(int connection, const char* response, size_t size) {
  char piece[piece_bytes];
  if (recv(connection, piece, sizeof piece, 0) <= 0) return;
  while (size > 0) {
    const ssize_t sent = send(connection, response, size, MSG_NOSIGNAL);
    if (sent <= 0) return;
    response += sent;
    size -= (size_t)sent;
  }
}

static void serve(int listener, const char* response, size_t size) {
  for (;;) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(listener, &readable);
    struct timeval timeout = {0, select_timeout_us};
    if (select(listener + 1, &readable, NULL, NULL, &timeout) <= 0) continue;
    const int connection = accept(listener, NULL, NULL);
    if (connection < 0) continue;
    answer(connection, response, size);
    shutdown(connection, SHUT_RDWR);
    close(connection);
  }
}

int main(int argc, char** argv) {
  if (argc != 3) return 1;
  const size_t size = (size_t)strtoul(argv[2], NULL, 10);
  char* response = malloc(size);
  const int listener = listen_on((unsigned short)strtoul(argv[1], NULL, 10));
  if (size == 0 || response == NULL || listener < 0) return 1;
  memset(response, 'x', size);
  serve(listener, response, size);
}
