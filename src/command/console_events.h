// Console events while a command runs the service.
#pragma once

#include <atomic>
#include <cstdint>

namespace velmora {

// How many have come. Set by count_console_event.
inline std::atomic<unsigned> console_events{0};
static_assert(std::atomic<unsigned>::is_always_lock_free);

// Counts the events 0, 1, 2, 5 and 6 (Ctrl+C, Ctrl+Break, close, log-off, shutdown; wincon.h) and returns
// true. Returns false for all others. The system calls this on a thread or in a signal context of its choice.
[[nodiscard]] bool count_console_event(std::uint32_t event);

}  // namespace velmora
