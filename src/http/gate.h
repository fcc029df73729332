// Checks that admit a request: Host and Origin name this service, and the session token matches. Pure.
#pragma once

#include <cstdint>
#include <string_view>

#include "http/request.h"

namespace velmora {

// True if the Host header is exactly "127.0.0.1:PORT", or "localhost:PORT" in any case.
[[nodiscard]] bool host_allowed(const ApiRequest& request, std::uint16_t port);

// True if the Origin header is exactly "http://127.0.0.1:PORT", or "http://localhost:PORT" in any case. Also
// true without the header.
[[nodiscard]] bool origin_allowed(const ApiRequest& request, std::uint16_t port);

// Compares two strings. The time depends only on the longer length, not on where they differ.
[[nodiscard]] bool constant_time_equal(std::string_view left, std::string_view right);

// True if the header x-velmora-token exists and equals the session token. Compares in constant time.
[[nodiscard]] bool token_allowed(const ApiRequest& request, std::string_view session_token);

}  // namespace velmora
