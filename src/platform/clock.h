// Time: what tests control.
#pragma once

#include <cstdint>
#include <ctime>

namespace velmora {

// Nanoseconds of a clock that never goes back. Its origin means nothing.
[[nodiscard]] std::int64_t steady_now_ns();

// The present local time. False, with `out` untouched, when the system cannot tell it.
[[nodiscard]] bool read_local_time(std::tm& out);

// Seconds since 1970-01-01 00:00 UTC, leap seconds not counted. It jumps when somebody sets the clock.
[[nodiscard]] std::int64_t unix_time_s();

// Sleep of at least so many milliseconds.
void sleep_ms(std::uint32_t duration_ms);

}  // namespace velmora
