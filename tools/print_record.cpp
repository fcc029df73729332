// Prints the 576 bytes of a shared record, 16 to a line. It opens the mapping and never makes one.
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "base/text.h"
#include "platform/machine.h"
#include "platform/shared_memory.h"

namespace velmora {
namespace {

constexpr std::size_t record_size_bytes = 576;
constexpr std::size_t bytes_in_line = 16;
using Line = std::array<unsigned char, bytes_in_line>;

// The record's words change while we look, each in one step, so each is read in one.
Line read_line(unsigned char* bytes) {
  auto* words = reinterpret_cast<std::uint64_t*>(bytes);
  const std::array<std::uint64_t, 2> present{std::atomic_ref(words[0]).load(),
                                             std::atomic_ref(words[1]).load()};
  Line line;
  std::memcpy(line.data(), present.data(), line.size());
  return line;
}

void print_line(std::size_t offset, const Line& line) {
  std::printf("%03zx ", offset);
  for (const unsigned char byte : line) std::printf(" %02x", byte);
  std::printf("\n");
}

int print_record(const char* name) {
  SharedMapping mapping;
  SharedView view;
  std::uint32_t error = open_shared_mapping(wide_from_signed_bytes(name), mapping);
  if (error == 0) error = map_shared_view(mapping, record_size_bytes, view);
  if (error != 0) {
    std::fprintf(stderr, "mapping failed with error %u\n", error);
    return 1;
  }
  auto* bytes = static_cast<unsigned char*>(view.native().data);
  for (std::size_t offset = 0; offset < record_size_bytes; offset += bytes_in_line) {
    print_line(offset, read_line(bytes + offset));
  }
  return 0;
}

}  // namespace
}  // namespace velmora

int main(int argc, char** argv) {
  velmora::prepare_standard_streams();
  if (argc == 2) return velmora::print_record(argv[1]);
  std::fputs("usage: velmora_print_record NAME\n", stderr);
  return 2;
}
