// How the console ends the service.
#pragma once

#include <atomic>
#include <cstdint>

namespace velmora {

// Set by console_ctrl_handler, read by the loop.
inline std::atomic<bool> stop_requested{false};
static_assert(std::atomic<bool>::is_always_lock_free);

// Takes the console events 0, 1, 2 and 6 (Ctrl+C, Ctrl+Break, close, shutdown; wincon.h) by setting
// stop_requested, and returns true for them alone. The log-off event 5 is left alone on purpose: a service
// of another session must outlive it. Runs on a thread or in a signal of the system's choice.
[[nodiscard]] bool console_ctrl_handler(std::uint32_t event);

}  // namespace velmora
