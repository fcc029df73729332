// Clocks and sleeping. Behind the platform seam so that tests can control time.
#pragma once

#include <cstdint>
#include <ctime>

namespace velmora {

// Nanoseconds of a monotonic clock with an arbitrary origin.
[[nodiscard]] std::int64_t steady_now_ns();

// Reads the local time as the system shows it, including tm_wday and tm_yday. `tm_isdst` may be -1. Returns
// false, leaving `out` unchanged, if the system cannot provide it.
[[nodiscard]] bool read_local_time(std::tm& out);

// Seconds since 1970-01-01 00:00 UTC, without leap seconds. Jumps when somebody sets the clock.
[[nodiscard]] std::int64_t unix_time_s();

// Sleeps for at least `duration_ms`. On Windows it may be up to one tick (15.6 ms) shorter.
void sleep_ms(std::uint32_t duration_ms);

}  // namespace velmora
