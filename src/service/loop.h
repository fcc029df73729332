// The one loop of the service.
#pragma once

#include <cstdint>

#include "api/service_state.h"
#include "platform/sockets.h"

namespace velmora {

// How long one wait for a connection lasts, microseconds: the time in which a stop is noticed.
inline constexpr std::int64_t select_timeout_us = 250'000;

// How far apart usage is counted, seconds.
inline constexpr std::int64_t tick_period_s = 30;

// Takes one connection at a time, from its first byte to its closing, until stop_requested is set. A
// connection that cannot be had or that fails is passed over. A client that sends nothing holds the service
// for as long as it stays. Between exchanges it counts usage,
// signs out when the session-check thread has found the session superseded, and starts that thread when it is
// due.
void serve_until_stopped(const Socket& listener, ServiceState& state);

}  // namespace velmora
