// What console events do between console_window.h and machine.h.
#pragma once

#include <cstdint>

namespace velmora {

// Runs after a handler has handled the event: delays the end of the process as delay_end_after_close says.
void delay_after_event(std::uint32_t event);

}  // namespace velmora
