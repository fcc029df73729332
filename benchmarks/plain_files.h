// What the plain downloads of both systems share: the files, a block of them, and the table of the checksum.
#pragma once

#include <stdint.h>

enum { block_bytes = 65536, file_count = 4 };

static const char* const names[file_count] = {"capture-1-host-in.wav", "capture-2-algorithm-in.wav",
                                              "capture-3-algorithm-out.wav", "capture-4-host-out.wav"};
static uint32_t table[256];
static char block[block_bytes];

static void build_table(void) {
  for (uint32_t index = 0; index < 256; ++index) {
    uint32_t entry = index;
    for (int round = 0; round < 8; ++round) entry = (entry >> 1) ^ (entry & 1 ? 0xEDB88320u : 0);
    table[index] = entry;
  }
}
