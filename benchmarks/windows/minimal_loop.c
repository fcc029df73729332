// The minimum for a Windows server with one exchange per connection, as the baseline for the service: the
// calls of ../minimal_loop.c in Winsock's words. It ignores the request and sends a fixed response.
//
// Usage: velmora_minimal_loop PORT BYTES: listens on 127.0.0.1 until killed. Exit code 1: cannot start.
#include "listen.h"

#include <stdlib.h>
#include <string.h>

enum { piece_bytes = 4096, select_timeout_us = 250000 };

static void answer(SOCKET connection, const char* response, int size) {
  char piece[piece_bytes];
  if (recv(connection, piece, sizeof piece, 0) <= 0) return;
  while (size > 0) {
    const int sent = send(connection, response, size, 0);
    if (sent <= 0) return;
    response += sent;
    size -= sent;
  }
}

static void serve(SOCKET listener, const char* response, int size) {
  for (;;) {
    fd_set readable;
    readable.fd_count = 1;
    readable.fd_array[0] = listener;
    struct timeval timeout = {0, select_timeout_us};
    if (select(0, &readable, NULL, NULL, &timeout) <= 0) continue;
    const SOCKET connection = accept(listener, NULL, NULL);
    if (connection == INVALID_SOCKET) continue;
    answer(connection, response, size);
    shutdown(connection, SD_BOTH);
    closesocket(connection);
  }
}

int main(int argc, char** argv) {
  if (argc != 3) return 1;
  const int size = atoi(argv[2]);
  const SOCKET listener = listen_on((unsigned short)atoi(argv[1]));
  char* response = size > 0 ? malloc((size_t)size) : NULL;
  if (response == NULL || listener == INVALID_SOCKET) return 1;
  memset(response, 'x', (size_t)size);
  serve(listener, response, size);
}
