// Prints the 576 bytes of a shared record, 16 per line. Opens an existing mapping and never creates one.
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

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

// `value` in lower-case hexadecimal, of as many digits as are asked for.
std::string hexadecimal(std::size_t value, int digits) {
  std::string text;
  for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4)
    text += "0123456789abcdef"[(value >> shift) & 0xF];
  return text;
}

std::string line_text(std::size_t offset, const Line& line) {
  std::string text = hexadecimal(offset, 3) + ' ';
  for (const unsigned char byte : line) text += ' ' + hexadecimal(byte, 2);
  return text + '\n';
}

int print_record(const char* name) {
  SharedMapping mapping;
  SharedView view;
  std::optional<std::uint32_t> error = open_shared_mapping(wide_from_signed_bytes(name), mapping);
  if (!error) error = map_shared_view(mapping, record_size_bytes, view);
  if (error) {
    write_standard_error("mapping failed with error " + std::to_string(*error) + '\n');
    return 1;
  }
  auto* bytes = static_cast<unsigned char*>(view.native().data);
  for (std::size_t offset = 0; offset < record_size_bytes; offset += bytes_in_line) {
    write_standard_output(line_text(offset, read_line(bytes + offset)));
  }
  return 0;
}

}  // namespace
}  // namespace velmora

int main(int argc, char** argv) {
  velmora::prepare_process();
  if (argc == 2) return velmora::print_record(argv[1]);
  velmora::write_standard_error("usage: velmora_print_record NAME\n");
  return 2;
}
