// The window in which a person runs a command. Elsewhere than on Windows it is the terminal.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace velmora {

// SetConsoleTitleW, as UTF-8. Elsewhere, and without a console, nothing happens.
void set_console_title(std::string_view title);

// Reads one line of standard input, as UTF-8 without its line end, up to 1024 bytes; more are dropped. False,
// with an empty line, at the end of the input or if it cannot be read.
[[nodiscard]] bool read_standard_input_line(std::string& line);

// On Windows a process ends as soon as its console handler has returned for the events 2, 5 and 6 (close,
// log-off, shutdown). After this call such an event that the handler handles waits up to `wait_ms`
// milliseconds for the process to end by itself; Windows itself waits for some 5 seconds. Elsewhere nothing
// ends early, and nothing happens.
void delay_end_after_close(std::uint32_t wait_ms);

}  // namespace velmora
