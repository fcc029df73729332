// A synchronous HTTP client: one exchange, call by call, with the semantics and error numbers of WinHTTP
// (winhttp.h, winerror.h). 0 is success. There are no callbacks; the caller pulls the reply.
//
// Redirections (301, 302, 303, 307, 308) are followed as WinHTTP does by default: up to 10, then error 12156.
// On Linux a redirection from https to http is 12156 too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/owner.h"

namespace velmora {

struct UrlParts {
  std::u16string host;
  std::uint16_t port = 0;  // the scheme's default if the URL has none
  std::u16string path;     // including the query, unchanged; may be empty
  bool secure = false;     // https
  bool operator==(const UrlParts&) const = default;
};

// WinHttpCrackUrl without flags. False, leaving `out` unchanged, if it is no http or https URL with a host.
[[nodiscard]] bool split_url(std::u16string_view url, UrlParts& out);

struct HttpExchangeKind {
  using Native = std::uintptr_t;
  static constexpr Native none = 0;
  static void release(Native native) noexcept;  // WinHttpCloseHandle of all handles, in reverse order
};
// Owner of an exchange. One thread at a time may use it; different threads may use different exchanges.
using HttpExchange = Owner<HttpExchangeKind>;

// WinHttpOpen with automatic proxy (4), no proxy name, no bypass list and flags 0 (synchronous). `out` is
// assigned only on success.
[[nodiscard]] std::uint32_t open_http_session(std::u16string_view user_agent, HttpExchange& out);

// Limits of single waits, in milliseconds. The whole exchange has no limit. On Windows they are passed
// to WinHTTP, which may take longer: for hosts with several addresses, for a proxy search, and while
// waiting for a head.
struct HttpTimeouts {
  std::int32_t resolve_ms;
  std::int32_t connect_ms;
  std::int32_t send_ms;     // without any byte sent
  std::int32_t receive_ms;  // without any byte received
};
// WinHttpSetTimeouts.
[[nodiscard]] std::uint32_t set_http_timeouts(const HttpExchange& exchange, const HttpTimeouts& timeouts);

// WinHttpConnect: sets the server. Does not connect yet.
[[nodiscard]] std::uint32_t connect_http(const HttpExchange& exchange, std::u16string_view host,
                                         std::uint16_t port);

// WinHttpOpenRequest. `path` is sent unchanged, apart from what WinHTTP escapes itself.
[[nodiscard]] std::uint32_t open_http_request(const HttpExchange& exchange, std::u16string_view method,
                                              std::u16string_view path, bool secure);

// WinHttpSendRequest. `header` is one line without its line end, or empty for none.
//
// 12002: timeout; 12007: unknown host name; 12029: cannot connect; 12157 and 12175: TLS errors. Some of these
// may be returned only by the next call.
//
// `body` must stay valid until receive_http_response has returned: a redirection may send it again.
[[nodiscard]] std::uint32_t send_http_request(const HttpExchange& exchange, std::u16string_view header,
                                              std::string_view body);

// WinHttpReceiveResponse: waits for the head of the reply. 12030: the connection ended; 12150: a redirection
// without a Location; 12152: not HTTP; 12182: too many or too long header lines. The limit of 12182 includes
// trailers, which are read with the body.
[[nodiscard]] std::uint32_t receive_http_response(const HttpExchange& exchange);

// WinHttpQueryHeaders for the numeric status. `out` is assigned only on success.
[[nodiscard]] std::uint32_t query_http_status(const HttpExchange& exchange, std::uint32_t& out);

struct HttpRead {
  std::size_t count;  // bytes; 0 with error 0: end of the reply
  std::uint32_t error;
};
// WinHttpQueryDataAvailable, then WinHttpReadData of up to `capacity` bytes, without the transfer coding.
[[nodiscard]] HttpRead read_http_response(const HttpExchange& exchange, char* buffer, std::size_t capacity);

}  // namespace velmora
