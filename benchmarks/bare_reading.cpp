// The least that comes before the first byte of a download: reads the four files once, in the blocks of the
// service, with the service's checksum loop, and then sends one byte.
//
// Usage: velmora_bare_reading PORT DIRECTORY: listens on 127.0.0.1 until killed. Exit code 1: no start.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/crc32.h"
#include "listen.h"

namespace velmora::bench {
namespace {

constexpr std::array<const char*, 4> names = {"capture-1-host-in.wav", "capture-2-algorithm-in.wav",
                                              "capture-3-algorithm-out.wav", "capture-4-host-out.wav"};
std::array<char, 65536> block;

std::uint32_t sum_file(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  std::uint32_t crc = 0xFFFFFFFF;
  for (ssize_t count = 0; (count = read(file, block.data(), block.size())) > 0;) {
    crc = crc32_update(crc, block.data(), static_cast<std::size_t>(count));
  }
  close(file);
  return ~crc;
}

void answer(int connection, const std::string& directory) {
  std::uint32_t sums = 0;
  if (recv(connection, block.data(), block.size(), 0) <= 0) return;
  for (const char* name : names) sums ^= sum_file(directory + '/' + name);
  const char byte = static_cast<char>(sums);
  static_cast<void>(send(connection, &byte, 1, MSG_NOSIGNAL));
}

}  // namespace
}  // namespace velmora::bench

int main(int argc, char** argv) {
  if (argc != 3) return 1;
  const int listener = listen_on(static_cast<unsigned short>(std::strtoul(argv[1], nullptr, 10)));
  if (listener < 0) return 1;
  for (;;) {
    const int connection = accept(listener, nullptr, nullptr);
    if (connection < 0) continue;
    velmora::bench::answer(connection, argv[2]);
    shutdown(connection, SHUT_RDWR);
    close(connection);
  }
}
