#include "platform/console_window.h"

#include <algorithm>
#include <array>
#include <atomic>

#include "platform/windows/console_events.h"
#include "platform/windows/native.h"

namespace velmora {
namespace {

constexpr std::size_t line_limit = 1024;
std::atomic<std::uint32_t> end_delay_ms{0};

// A console gives wide text, whatever its code page. Ctrl+Z at the start of a line ends the input.
bool read_console_line(HANDLE console, std::string& line) {
  constexpr wchar_t end_of_input = 0x1A;
  std::u16string wide;
  for (;;) {
    std::array<wchar_t, 256> piece;
    DWORD count = 0;
    // Ctrl+C ends the call without text.
    if (!ReadConsoleW(console, piece.data(), static_cast<DWORD>(piece.size()), &count, nullptr) || count == 0)
      return false;
    if (wide.empty() && piece[0] == end_of_input) return false;
    const bool is_end = piece[count - 1] == L'\n';
    if (wide.size() < line_limit) wide.append(piece.begin(), piece.begin() + count);
    if (is_end) break;
  }
  while (wide.ends_with(u'\n') || wide.ends_with(u'\r')) wide.pop_back();
  line = utf8_from_wide_replacing(wide);
  line.resize(std::min(line.size(), line_limit));
  return true;
}

// Reads one byte at a time, so that the next line stays in the input for other readers.
bool read_byte_line(HANDLE input, std::string& line) {
  std::size_t total = 0;
  for (;;) {
    char byte = 0;
    DWORD count = 0;
    if (!ReadFile(input, &byte, 1, &count, nullptr) || count == 0) return total > 0;
    if (byte == '\n') break;
    ++total;
    if (line.size() < line_limit) line += byte;
  }
  if (total == line.size() && line.ends_with('\r')) line.pop_back();
  return true;
}

}  // namespace

void delay_after_event(std::uint32_t event) {
  const bool ends_process =
      event == CTRL_CLOSE_EVENT || event == CTRL_LOGOFF_EVENT || event == CTRL_SHUTDOWN_EVENT;
  if (ends_process) Sleep(end_delay_ms);
}

void set_console_title(std::string_view title) {
  SetConsoleTitleW(wide_text(wide_from_utf8_replacing(title)).c_str());
}

bool read_standard_input_line(std::string& line) {
  line.clear();
  const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
  DWORD mode = 0;
  return GetConsoleMode(input, &mode) ? read_console_line(input, line) : read_byte_line(input, line);
}

void delay_end_after_close(std::uint32_t wait_ms) { end_delay_ms = wait_ms; }

}  // namespace velmora
