// Reads one HTTP/1.1 request (RFC 9112). It deliberately supports only a subset: no keep-alive, no chunked
// coding, no Expect, no ranges.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/sockets.h"

namespace velmora {

// One parsed request. All views point into the received bytes and are valid as long as those. Bytes are as
// received, except where a field says otherwise.
struct ApiRequest {
  std::string_view method;  // case kept
  std::string_view target;  // undecoded, with the query
  // The headers that the service reads, by their names in any case: the value without white space at its
  // ends, or no value if the header is missing. The last one wins.
  std::optional<std::string_view> host;
  std::optional<std::string_view> origin;
  std::optional<std::string_view> content_length;
  std::optional<std::string_view> session_token;  // x-velmora-token
  std::string_view body;                          // at most Content-Length bytes; empty without that header
};

// Bytes requested from the socket at a time.
inline constexpr std::size_t read_chunk_bytes = 4096;
// Largest request in bytes: head, terminator and body together.
inline constexpr std::size_t request_limit_bytes = 65536;

// How far a head is parsed.
struct HeadState {
  enum class Progress { incomplete, complete, bad };
  std::size_t parsed = 0;            // length of the lines that are parsed; on `complete`, offset of the body
  std::size_t searched = 0;          // no line feed is in the bytes from `parsed` to here
  bool bad = false;                  // the request line is bad, which counts only when the head is complete
  std::uint64_t content_length = 0;  // in bytes, 0 without the header; valid on `complete`
};

// Parses the head that `received` begins with, which ends with a blank line: "\r\n\r\n". On `incomplete`,
// call it again with more bytes behind the same ones, at the same place, and with the same `state` and
// `request`, which begin new. On `complete`, `request` is complete except for its body. `bad`: the request
// line or the Content-Length is not valid; `state` and `request` are unspecified then. Pure. Each byte is
// searched only once, however the head is split.
[[nodiscard]] HeadState::Progress parse_head(std::string_view received, HeadState& state,
                                             ApiRequest& request);

// Receives and parses one request that arrives in pieces. The caller writes the bytes, and the state says
// what follows. It holds all bytes itself and allocates nothing.
class RequestReader {
 public:
  enum class State { incomplete, complete, bad };

  RequestReader() = default;
  RequestReader(const RequestReader&) = delete;  // the request points into its own reader
  RequestReader& operator=(const RequestReader&) = delete;

  // Where the next bytes belong: read_chunk_bytes of memory while the state is incomplete.
  [[nodiscard]] char* room() { return received_.data() + size_; }
  // Takes the next `count` bytes, which the caller has written into room(): at most read_chunk_bytes. Call it
  // only while the state is incomplete. Each byte is searched only once, however the request is split.
  [[nodiscard]] State take(std::size_t count);
  // Valid on State::complete, as long as the reader exists.
  [[nodiscard]] const ApiRequest& request() const { return request_; }

 private:
  // An incomplete request is shorter than the limit, so there is always room for one more piece.
  std::array<char, request_limit_bytes + read_chunk_bytes> received_;  // deliberately not initialized
  std::size_t size_ = 0;
  bool has_head_ = false;
  HeadState head_;
  ApiRequest request_;
};

// Reads one request from a connected socket. Blocks while the peer keeps the connection open and the request
// is incomplete. Returns false if the peer closes or fails too early, or if the request is bad or too large;
// otherwise `reader` holds the request. Expects a new reader.
[[nodiscard]] bool read_request(const Socket& socket, RequestReader& reader);

}  // namespace velmora
