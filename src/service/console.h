// Console events that stop the service.
#pragma once

#include <atomic>
#include <cstdint>

namespace velmora {

// Set by console_ctrl_handler, read by the loop.
inline std::atomic<bool> stop_requested{false};
static_assert(std::atomic<bool>::is_always_lock_free);

// Handles the console events 0, 1, 2 and 6 (Ctrl+C, Ctrl+Break, close, shutdown; wincon.h): sets
// stop_requested and returns true. Returns false for all others. The log-off event 5 is deliberately not
// handled: a service in another session must survive it. The system calls this on a thread or in a signal
// context of its choice.
[[nodiscard]] bool console_ctrl_handler(std::uint32_t event);

}  // namespace velmora
