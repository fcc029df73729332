// A plain implementation of the download for Windows, as the baseline for the service: ../minimal_download.c
// with Winsock's and Win32's calls. Two passes over the same four files, one lookup after another, each block
// one send.
//
// Usage: velmora_minimal_download PORT DIRECTORY: listens on 127.0.0.1 until killed. Exit code 1: no start.
#include "listen.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <windows.h>

#include "../plain_files.h"

static HANDLE open_file(const char* directory, int index) {
  char path[4096];
  snprintf(path, sizeof path, "%s\\%s", directory, names[index]);
  return CreateFileA(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, NULL,
                     OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, NULL);
}

static DWORD read_block(HANDLE file) {
  DWORD count = 0;
  return ReadFile(file, block, sizeof block, &count, NULL) ? count : 0;
}

static int send_all(SOCKET connection, const char* bytes, int size) {
  while (size > 0) {
    const int sent = send(connection, bytes, size, 0);
    if (sent <= 0) return -1;
    bytes += sent;
    size -= sent;
  }
  return 0;
}

static int64_t sum_file(const char* directory, int index, uint32_t* crc) {
  const HANDLE file = open_file(directory, index);
  int64_t bytes = 0;
  DWORD count;
  *crc = 0xFFFFFFFF;
  if (file == INVALID_HANDLE_VALUE) return -1;
  while ((count = read_block(file)) > 0) {
    for (DWORD place = 0; place < count; ++place) {
      *crc = table[(*crc ^ (unsigned char)block[place]) & 0xFF] ^ (*crc >> 8);
    }
    bytes += count;
  }
  CloseHandle(file);
  return bytes;
}

static int send_file(SOCKET connection, const char* directory, int index) {
  const HANDLE file = open_file(directory, index);
  DWORD count;
  int result = 0;
  if (file == INVALID_HANDLE_VALUE) return -1;
  while (result == 0 && (count = read_block(file)) > 0) result = send_all(connection, block, (int)count);
  CloseHandle(file);
  return result;
}

// Headers have the right length and checksums; all other bytes are zero, because their values cost nothing.
static void answer(SOCKET connection, const char* directory) {
  static const char zeros[96];
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
      snprintf(head, sizeof head, "HTTP/1.1 200 OK\r\nContent-Length: %.0f\r\n\r\n", (double)total);
  if (send_all(connection, head, size) != 0) return;
  for (int index = 0; index < file_count; ++index) {
    char header[64] = {0};
    memcpy(header + 14, &crcs[index], sizeof crcs[index]);
    if (send_all(connection, header, 30 + (int)strlen(names[index])) != 0) return;
    if (send_file(connection, directory, index) != 0) return;
  }
  for (int index = 0; index < file_count; ++index) send_all(connection, zeros, 46);
  send_all(connection, zeros, 22);
  send_all(connection, zeros, 96);
}

int main(int argc, char** argv) {
  if (argc != 3) return 1;
  const SOCKET listener = listen_on((unsigned short)atoi(argv[1]));
  if (listener == INVALID_SOCKET) return 1;
  build_table();
  for (;;) {
    const SOCKET connection = accept(listener, NULL, NULL);
    if (connection == INVALID_SOCKET) continue;
    answer(connection, argv[2]);
    shutdown(connection, SD_BOTH);
    closesocket(connection);
  }
}
