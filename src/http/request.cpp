#include "http/request.h"

#include <algorithm>
#include <charconv>

#include "base/ascii.h"

namespace velmora {
namespace {

constexpr std::string_view version_prefix = "HTTP/1.";

// Removes the next token from `rest`, with the white space before it, and returns it. Empty if none is left.
std::string_view take_token(std::string_view& rest) {
  while (!rest.empty() && is_space(rest.front())) rest.remove_prefix(1);
  const auto end = std::find_if(rest.begin(), rest.end(), [](char byte) { return is_space(byte); });
  const std::string_view token(rest.begin(), end);
  rest.remove_prefix(token.size());
  return token;
}

bool parse_request_line(std::string_view line, ApiRequest& request) {
  request.method = take_token(line);
  request.target = take_token(line);
  return take_token(line).starts_with(version_prefix);  // so all three tokens exist
}

// `usual` is how most clients write it.
bool is_same_name(std::string_view name, std::string_view usual) {
  return name == usual || equal_ignoring_case(name, usual);
}

// Most names differ in their length already.
bool is_name(std::string_view name, std::string_view usual) {
  return name.size() == usual.size() && is_same_name(name, usual);
}

// Returns the field of a header, or null for a header that nothing reads.
std::optional<std::string_view>* find_field(ApiRequest& request, std::string_view name) {
  if (is_name(name, "Host")) return &request.host;
  if (is_name(name, "Origin")) return &request.origin;
  if (is_name(name, "Content-Length")) return &request.content_length;
  if (is_name(name, "x-velmora-token")) return &request.session_token;
  return nullptr;
}

// Whether a line that starts with this byte may be one of those headers. Most lines of a browser are not, and
// need no further look.
bool may_start_field(char first) {
  switch (first) {
    case 'H':
    case 'h':
    case 'O':
    case 'o':
    case 'C':
    case 'c':
    case 'X':
    case 'x': return true;
    default: return is_space(first);
  }
}

void parse_header_line(std::string_view line, ApiRequest& request) {
  if (line.empty() || !may_start_field(line.front())) return;
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return;
  std::optional<std::string_view>* const field = find_field(request, trim(line.substr(0, colon)));
  if (field != nullptr) *field = trim(line.substr(colon + 1));
}

// Accepts only decimal digits that fit into 64 bits. Sets 0 without the header.
bool parse_content_length(const ApiRequest& request, std::uint64_t& content_length) {
  content_length = 0;
  if (!request.content_length) return true;
  const char* const end = request.content_length->data() + request.content_length->size();
  const auto parsed = std::from_chars(request.content_length->data(), end, content_length);
  return parsed.ec == std::errc() && parsed.ptr == end;
}

// Whether the line that ends with the line feed at `feed` is the blank line after "\r\n". `line` is that line
// with its carriage return. A line feed before the blank line is not enough.
bool ends_head(std::string_view received, std::string_view line, std::size_t feed) {
  return line == "\r" && feed >= 3 && received[feed - 3] == '\r';
}

}  // namespace

HeadState::Progress parse_head(std::string_view received, HeadState& state, ApiRequest& request) {
  std::size_t from = state.parsed;
  std::size_t feed = received.find('\n', state.searched);
  for (; feed != std::string_view::npos; feed = received.find('\n', from)) {
    const std::string_view line(received.data() + from, feed - from);
    if (from == 0) {
      state.bad = !parse_request_line(line, request);
    } else {
      parse_header_line(line, request);
    }
    from = feed + 1;
    if (ends_head(received, line, feed)) break;
  }
  state.parsed = from;
  state.searched = received.size();
  if (feed == std::string_view::npos) return HeadState::Progress::incomplete;
  const bool good = !state.bad && parse_content_length(request, state.content_length);
  return good ? HeadState::Progress::complete : HeadState::Progress::bad;
}

RequestReader::State RequestReader::take(std::size_t count) {
  size_ += count;
  const std::string_view received(received_.data(), size_);
  if (!has_head_) {
    switch (parse_head(received, head_, request_)) {
      case HeadState::Progress::incomplete:
        return size_ >= request_limit_bytes ? State::bad : State::incomplete;
      case HeadState::Progress::bad: return State::bad;
      case HeadState::Progress::complete: has_head_ = true;
    }
  }
  // Deliberately unsigned and unchecked: a length close to 2^64 wraps and passes the limit. The request then
  // ends at once with the bytes that have arrived.
  const std::uint64_t total = head_.parsed + head_.content_length;
  if (total > request_limit_bytes) return State::bad;
  if (size_ < total) return State::incomplete;
  request_.body = received.substr(head_.parsed, head_.content_length);
  return State::complete;
}

bool read_request(const Socket& socket, RequestReader& reader) {
  RequestReader::State state = RequestReader::State::incomplete;
  while (state == RequestReader::State::incomplete) {
    const SocketCount received = receive_bytes(socket, reader.room(), read_chunk_bytes);
    if (received.count <= 0) return false;
    state = reader.take(static_cast<std::size_t>(received.count));
  }
  return state == RequestReader::State::complete;
}

}  // namespace velmora
