// A plain implementation of the download, as the baseline for the service: two passes over the same four
// files. Checksums use one table lookup after another, and each block is one send.
//
// Usage: velmora_minimal_download PORT DIRECTORY: listens on 127.0.0.1 until killed. Exit code 1: no start.
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "listen.h"
#include "plain_files.h"

static int open_file(const char* directory, int index) {
  char path[4096];
  snprintf(path, sizeof path, "%s/%s", directory, names[index]);
  return open(path, O_RDONLY);
}

static int send_all(int connection, const char* bytes, size_t size) {
  while (size > 0) {
    const ssize_t sent = send(connection, bytes, size, MSG_NOSIGNAL);
    if (sent <= 0) return -1;
    bytes += sent;
    size -= (size_t)sent;
  }
  return 0;
}

static int64_t sum_file(const char* directory, int index, uint32_t* crc) {
  const int file = open_file(directory, index);
  int64_t bytes = 0;
  ssize_t count;
  *crc = 0xFFFFFFFF;
  if (file < 0) return -1;
  while ((count = read(file, block, sizeof block)) > 0) {
    for (ssize_t place = 0; place < count; ++place) {
      *crc = table[(*crc ^ (unsigned char)block[place]) & 0xFF] ^ (*crc >> 8);
    }
    bytes += count;
  }
  close(file);
  return bytes;
}

static int send_file(int connection, const char* directory, int index) {
  const int file = open_file(directory, index);
  ssize_t count;
  int result = file < 0 ? -1 : 0;
  while (result == 0 && (count = read(file, block, sizeof block)) > 0) {
    result = send_all(connection, block, (size_t)count);
  }
  if (file >= 0) close(file);
  return result;
}

// Headers have the right length and checksums; all other bytes are zero, because their values cost nothing.
static void answer(int connection, const char* directory) {
  static const char zeros[64];
  char head[256];
  char request[4096];
  uint32_t crcs[file_count];
  int64_t total = 518;
  if (recv(connection, request, sizeof request, 0) <= 0) return;
  for (int index = 0; index < file_count; ++index) {
    const int64_t bytes = sum_file(directory, index, &crcs[index]);
    if (bytes < 0) return;
    total += bytes;
  }
  const int size =
      snprintf(head, sizeof head, "HTTP/1.1 200 OK\r\nContent-Length: %lld\r\n\r\n", (long long)total);
  if (send_all(connection, head, (size_t)size) != 0) return;
  for (int index = 0; index < file_count; ++index) {
    char header[64] = {0};
    memcpy(header + 14, &crcs[index], sizeof crcs[index]);
    if (send_all(connection, header, 30 + strlen(names[index])) != 0) return;
    if (send_file(connection, directory, index) != 0) return;
  }
  for (int index = 0; index < file_count; ++index) send_all(connection, zeros, 46);
  send_all(connection, zeros, 22);
  send_all(connection, (const char[96]){0}, 96);
}

int main(int argc, char** argv) {
  if (argc != 3) return 1;
  const int listener = listen_on((unsigned short)strtoul(argv[1], NULL, 10));
  if (listener < 0) return 1;
  build_table();
  for (;;) {
    const int connection = accept(listener, NULL, NULL);
    if (connection < 0) continue;
    answer(connection, argv[2]);
    shutdown(connection, SHUT_RDWR);
    close(connection);
  }
}
