#include "platform/console_window.h"

#include <unistd.h>

#include <cerrno>

namespace velmora {
namespace {

// Reads one byte, so that the next line stays in the input for other readers.
bool read_byte(char& out) {
  ssize_t count = 0;
  do {
    count = read(STDIN_FILENO, &out, 1);
  } while (count < 0 && errno == EINTR);
  return count == 1;
}

}  // namespace

void set_console_title(std::string_view) {}

bool read_standard_input_line(std::string& line) {
  constexpr std::size_t limit = 1024;
  line.clear();
  std::size_t count = 0;
  for (char byte = 0; read_byte(byte);) {
    if (byte == '\n') {
      if (count == line.size() && line.ends_with('\r')) line.pop_back();
      return true;
    }
    ++count;
    if (line.size() < limit) line += byte;
  }
  return count > 0;
}

void delay_end_after_close(std::uint32_t) {}

}  // namespace velmora
