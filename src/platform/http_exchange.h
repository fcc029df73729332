// One HTTP exchange as a client, call by call, in WinHTTP's words and with its numbers (winhttp.h,
// winerror.h); 0 is success. Nothing calls back: the reply is pulled. Redirections (301, 302, 303, 307, 308)
// are followed as WinHTTP does by default: 10 at most, else 12156. On Linux one from https to http is 12156,
// too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/owner.h"

namespace velmora {

struct UrlParts {
  std::u16string host;
  std::uint16_t port = 0;  // the scheme's own where the URL names none
  std::u16string path;     // with the query, as they stand; may be empty
  bool secure = false;     // https
  bool operator==(const UrlParts&) const = default;
};

// WinHttpCrackUrl without flags. False, with `out` untouched, for what is no http or https URL with a host.
[[nodiscard]] bool split_url(std::u16string_view url, UrlParts& out);

struct HttpExchangeKind {
  using Native = std::uintptr_t;
  static constexpr Native none = 0;
  static void release(Native native) noexcept;  // WinHttpCloseHandle of all that is open, last one first
};
// Owner of an exchange. It may be used by one thread at a time, and different ones by different threads.
using HttpExchange = Owner<HttpExchangeKind>;

// WinHttpOpen with the automatic proxy (4), no proxy name, no bypass list, flags 0 (synchronous). `out` is
// assigned on success alone.
[[nodiscard]] std::uint32_t open_http_session(std::u16string_view user_agent, HttpExchange& out);

// How long a wait may last, milliseconds. There is no limit on the whole. On Windows these are what WinHTTP
// is asked for; a host with several addresses, a search for a proxy and the wait for a head may take longer
// there.
struct HttpTimeouts {
  std::int32_t resolve_ms;
  std::int32_t connect_ms;
  std::int32_t send_ms;     // for which no byte goes out
  std::int32_t receive_ms;  // for which no byte comes in
};
// WinHttpSetTimeouts.
[[nodiscard]] std::uint32_t set_http_timeouts(const HttpExchange& exchange, const HttpTimeouts& timeouts);

// WinHttpConnect: names the server, and connects to nothing yet.
[[nodiscard]] std::uint32_t connect_http(const HttpExchange& exchange, std::u16string_view host,
                                         std::uint16_t port);

// WinHttpOpenRequest: `path` goes out as it stands, but for what WinHTTP escapes by itself.
[[nodiscard]] std::uint32_t open_http_request(const HttpExchange& exchange, std::u16string_view method,
                                              std::u16string_view path, bool secure);

// WinHttpSendRequest. `header` is one line without its end, or empty for none. 12002: too slow; 12007: the
// host's name is not known; 12029: nobody answers there; 12157 and 12175: TLS. Some of these may come with
// the next call only. `body` must stay where it is until receive_http_response has returned: it is read again
// for a redirection that says the request again.
[[nodiscard]] std::uint32_t send_http_request(const HttpExchange& exchange, std::u16string_view header,
                                              std::string_view body);

// WinHttpReceiveResponse: waits for the head of the reply. 12030: the connection ended; 12150: a redirection
// has no Location; 12152: no HTTP;
// 12182: its lines are too many or too long, of the trailers too, which are read with the body.
[[nodiscard]] std::uint32_t receive_http_response(const HttpExchange& exchange);

// WinHttpQueryHeaders for the status as a number. `out` is assigned on success alone.
[[nodiscard]] std::uint32_t query_http_status(const HttpExchange& exchange, std::uint32_t& out);

struct HttpRead {
  std::size_t count;  // bytes; 0 with error 0 is the end of the reply
  std::uint32_t error;
};
// WinHttpQueryDataAvailable, then WinHttpReadData of what is available, `capacity` bytes at most. The reply's
// transfer coding is undone.
[[nodiscard]] HttpRead read_http_response(const HttpExchange& exchange, char* buffer, std::size_t capacity);

}  // namespace velmora
