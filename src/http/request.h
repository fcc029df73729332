// Reads one HTTP/1.1 request (RFC 9112). It deliberately supports only a subset: no keep-alive, no chunked
// coding, no Expect, no ranges.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/sockets.h"

namespace velmora {

// One parsed request. Bytes are as received, except where a field says otherwise.
struct ApiRequest {
  std::string method;                          // case kept
  std::string target;                          // undecoded, with the query
  std::map<std::string, std::string> headers;  // lower-cased name to trimmed value; the last one wins
  std::string body;                            // at most Content-Length bytes; empty without that header
};

// Bytes requested from the socket at a time.
inline constexpr std::size_t read_chunk_bytes = 4096;
// Largest request in bytes: head, terminator and body together.
inline constexpr std::size_t request_limit_bytes = 65536;

// Parses a head: the bytes before the blank line that ends it. Returns true if the request line and the
// Content-Length are valid. Then `request` is complete except for its body, and `content_length` is the
// announced length in bytes (0 without the header). On false, both are unspecified.
[[nodiscard]] bool parse_head(std::string_view head, ApiRequest& request, std::uint64_t& content_length);

// Parses a request that arrives in pieces. Pure: the caller supplies bytes, and the state says what follows.
class RequestReader {
 public:
  enum class State { incomplete, complete, bad };

  // Appends bytes and parses again. Call it only while the state is incomplete, with a few kilobytes at most:
  // the size limit is checked after they are appended. `request` is complete on State::complete and
  // unspecified otherwise. Each byte is searched only once, however the request is split.
  [[nodiscard]] State take(std::string_view bytes, ApiRequest& request);

 private:
  std::string buffer_;
  std::size_t searched_ = 0;              // no head terminator begins in these bytes
  std::optional<std::size_t> body_from_;  // offset of the body, set once the head is parsed
  std::uint64_t content_length_ = 0;
};

// Reads one request from a connected socket. Blocks while the peer keeps the connection open and the request
// is incomplete. Returns false if the peer closes or fails too early, or if the request is bad or too large.
[[nodiscard]] bool read_request(const Socket& socket, ApiRequest& request);

}  // namespace velmora
