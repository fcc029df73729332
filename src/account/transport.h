// The only connection to the account service: blocking HTTP exchanges, without retries or shared state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/http_exchange.h"

namespace velmora {

// Largest body of a reply in bytes.
inline constexpr std::size_t account_reply_limit_bytes = 0x200000;

struct AccountReply {
  bool ok = false;           // a reply came, with any HTTP status, and was not too large
  std::uint32_t status = 0;  // the HTTP status; 0 without a reply
  std::string body;          // as much as arrived
  std::string error;         // for the user (UTF-8); empty when ok
};

// Splits the URL of a service path: base address and path, concatenated unchanged. No value if the result is
// not an http or https URL.
[[nodiscard]] std::optional<UrlParts> account_url_parts(std::string_view service_url, std::string_view path);

// `method` is "POST" or "GET"; `body` is JSON or empty. Waits up to 5 s for the name, 5 s for the connection
// and 10 s for each byte sent or received. The whole exchange has no limit. A reply that breaks off is ok,
// with the bytes that arrived.
[[nodiscard]] AccountReply account_request(std::string_view service_url, std::string_view method,
                                           std::string_view path, std::string_view body);

}  // namespace velmora
