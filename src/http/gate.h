// What lets a request in: it is aimed at us, it comes from our own page, it knows the session token. Pure.
#pragma once

#include <cstdint>
#include <string_view>

#include "http/request.h"

namespace velmora {

// The Host is "127.0.0.1:PORT" exactly, or "localhost:PORT" in any case. False without the header.
[[nodiscard]] bool host_allowed(const ApiRequest& request, std::uint16_t port);

// There is no Origin, or it is "http://127.0.0.1:PORT" exactly, or "http://localhost:PORT" in any case.
[[nodiscard]] bool origin_allowed(const ApiRequest& request, std::uint16_t port);

// Equality in a time that depends on the greater length alone, not on where the two differ.
[[nodiscard]] bool constant_time_equal(std::string_view left, std::string_view right);

// The header x-velmora-token is there and equals the session token.
[[nodiscard]] bool token_allowed(const ApiRequest& request, std::string_view session_token);

}  // namespace velmora
