// Time: what tests control.
#pragma once

#include <cstdint>
#include <ctime>

namespace velmora {

// Nanoseconds of a clock that never goes back. Its origin means nothing.
[[nodiscard]] std::int64_t steady_now_ns();

// The present local time as the system shows it, with the days of the week and of the year; `tm_isdst` may be
// -1. False, with `out` untouched, when the system cannot tell it.
[[nodiscard]] bool read_local_time(std::tm& out);

// Seconds since 1970-01-01 00:00 UTC, leap seconds not counted. It jumps when somebody sets the clock.
[[nodiscard]] std::int64_t unix_time_s();

// Sleep of at least so many milliseconds; on Windows up to a tick of its clock (15.6 ms) may be missing.
void sleep_ms(std::uint32_t duration_ms);

}  // namespace velmora
