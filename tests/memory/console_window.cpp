#include "platform/console_window.h"

#include <algorithm>

#include "memory/system.h"

namespace velmora {

void set_console_title(std::string_view title) {
  static_cast<void>(memory::enter("SetConsoleTitleW"));
  memory::system().console_title = title;
}

bool read_standard_input_line(std::string& line) {
  constexpr std::size_t limit = 1024;
  line.clear();
  if (memory::enter("ReadConsoleW") != 0) return false;
  std::string& input = memory::system().standard_input;
  if (input.empty()) return false;
  const std::size_t end = std::min(input.find('\n'), input.size());
  line = input.substr(0, end);
  if (end < input.size() && line.ends_with('\r')) line.pop_back();
  line.resize(std::min(line.size(), limit));
  input.erase(0, end + 1);
  return true;
}

void delay_end_after_close(std::uint32_t wait_ms) { memory::system().end_delay_ms = wait_ms; }

}  // namespace velmora
