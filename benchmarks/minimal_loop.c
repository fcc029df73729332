// The minimum for a server with one exchange per connection, as the baseline for the service. It ignores the
// request and sends a fixed response.
//
// Usage: velmora_minimal_loop PORT BYTES: listens on 127.0.0.1 until killed. Exit code 1: cannot start.
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include "listen.h"

enum { piece_bytes = 4096, select_timeout_us = 250000 };

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
