// Reading one HTTP/1.1 request (RFC 9112, and deliberately little of it): no keep-alive, no chunking, no
// expectation, no range.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/sockets.h"

namespace velmora {

// One parsed request. The bytes are as they came.
struct ApiRequest {
  std::string method;                          // case kept
  std::string target;                          // undecoded, query included
  std::map<std::string, std::string> headers;  // lower-cased name to trimmed value; the last of a name counts
  std::string body;                            // what Content-Length announced; empty when there is none
};

// Size of each piece that is asked of the socket, bytes.
inline constexpr std::size_t read_chunk_bytes = 4096;
// The largest request: head, its terminator and the body together, bytes.
inline constexpr std::size_t request_limit_bytes = 65536;

// Parses a head: the bytes in front of the blank line that ends it. True when the request line and the
// content length are good; `request` then has all but its body, and `content_length` the announced bytes (0
// without the header). False leaves both in any state.
[[nodiscard]] bool parse_head(std::string_view head, ApiRequest& request, std::uint64_t& content_length);

// A request that arrives piece by piece. Pure: bytes go in, and the state tells whether more are wanted.
class RequestReader {
 public:
  enum class State { incomplete, complete, bad };

  // Takes the next bytes, at most a few kilobytes at a time, and looks again. Not to be called once the
  // state is no longer incomplete. On complete, `request` is whole; otherwise it is in any state. Each byte
  // is searched once, however the request is cut.
  [[nodiscard]] State take(std::string_view bytes, ApiRequest& request);

 private:
  std::string buffer_;
  std::size_t searched_ = 0;              // bytes in which no terminator of the head begins
  std::optional<std::size_t> body_from_;  // offset of the body, once the head is parsed
  std::uint64_t content_length_ = 0;
};

// Reads one request from a connected socket, blocking for as long as the peer keeps it open and incomplete.
// False on any failure, all alike: the peer closed or failed too early, or the request is bad or too large.
[[nodiscard]] bool read_request(const Socket& socket, ApiRequest& request);

}  // namespace velmora
