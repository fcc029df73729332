// The one way to the account service: a blocking HTTP exchange, without retry and without state between two.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/http_exchange.h"

namespace velmora {

// The largest body of a reply, bytes.
inline constexpr std::size_t account_reply_limit_bytes = 0x200000;

struct AccountReply {
  bool ok = false;           // an exchange took place, whatever its status
  std::uint32_t status = 0;  // the HTTP status; 0 when no reply came
  std::string body;          // what came of it
  std::string error;         // for the user (UTF-8); empty when ok
};

// Where a path of the service is, the two joined as they stand. No value: the result is no http or https URL.
[[nodiscard]] std::optional<UrlParts> account_url_parts(std::string_view service_url, std::string_view path);

// `method` is "POST" or "GET", `body` JSON or empty. It waits 5 s for the name and for the connection and 10
// s for each byte out or in, and has no limit on the whole. A reply that breaks off is ok with what came of
// it.
[[nodiscard]] AccountReply account_request(std::string_view service_url, std::string_view method,
                                           std::string_view path, std::string_view body);

}  // namespace velmora
