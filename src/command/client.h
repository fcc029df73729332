// One exchange with a service on 127.0.0.1, within limits.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "command/exit_codes.h"
#include "command/run_file.h"

namespace velmora {

// The longest wait for the next bytes of an answer, and for all of it.
inline constexpr std::int64_t answer_silence_ms = 5000;
inline constexpr std::int64_t answer_total_ms = 30'000;

struct Exchange {
  enum class Result {
    answered,
    refused,    // nobody listens, or there is no socket
    closed,     // the peer ended the connection before the answer was complete
    silent,     // no byte has come within the time limit
    stalled,    // some bytes have come, but not all within the limits
    senseless,  // not an answer of HTTP/1.1, or too large
  };
  Result result = Result::refused;
  unsigned status = 0;  // the next two are of an answer only
  std::string body;
};

// Sends a request in one piece to 127.0.0.1 and reads one answer, without following it anywhere. Call it
// between start_sockets and stop_sockets.
[[nodiscard]] Exchange exchange_with(std::uint16_t port, std::string_view request, std::int64_t silence_ms,
                                     std::int64_t total_ms);

// Returns the bytes of a GET request. Without a token there is no such header.
[[nodiscard]] std::string format_request(std::uint16_t port, std::string_view target, std::string_view token);

// Whether this is how a Velmora service refuses a request to its API without a valid token.
[[nodiscard]] bool is_token_refusal(const Exchange& exchange);

// Asks the service of a run for a document. On success `body` holds it; otherwise it is unchanged.
[[nodiscard]] Outcome ask_service(const RunRecord& run, std::string_view target, std::string& body);

}  // namespace velmora
