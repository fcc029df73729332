// The main loop of the service.
#pragma once

#include <cstdint>

#include "api/service_state.h"
#include "platform/sockets.h"

namespace velmora {

// The longest wait for a connection, in microseconds. It bounds the delay before a stop is noticed.
inline constexpr std::int64_t select_timeout_us = 250'000;

// The interval between counts of usage, in seconds.
inline constexpr std::int64_t tick_period_s = 30;

// Serves one connection at a time, from first byte to close, until stop_requested is set. A connection that
// fails is skipped. A client that sends nothing blocks the service while it stays connected.
//
// Between connections the loop counts usage and signs out if a check has found the session superseded. It
// starts the next check when that is due.
void serve_until_stopped(const Socket& listener, ServiceState& state);

}  // namespace velmora
