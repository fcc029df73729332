#include "http/request.h"

#include <charconv>

#include "base/ascii.h"

namespace velmora {
namespace {

constexpr std::string_view head_terminator = "\r\n\r\n";
constexpr std::string_view version_prefix = "HTTP/1.";

// Returns the length of the head with its terminator, or npos. No head ends in the first `searched` bytes.
std::size_t find_end_of_head(std::string_view received, std::size_t searched) {
  for (std::size_t feed = received.find('\n', searched); feed != std::string_view::npos;
       feed = received.find('\n', feed + 1)) {
    if (received.substr(0, feed + 1).ends_with(head_terminator)) return feed + 1;
  }
  return std::string_view::npos;
}

// Removes the next line from `rest`. Returns it without its line feed and one carriage return before that.
std::string_view take_line(std::string_view& rest) {
  const std::size_t end = rest.find('\n');
  std::string_view line = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

// Removes the next token from `rest`, with the white space before it, and returns it. Empty if none is left.
std::string_view take_token(std::string_view& rest) {
  while (!rest.empty() && is_space(rest.front())) rest.remove_prefix(1);
  std::size_t length = 0;
  while (length < rest.size() && !is_space(rest[length])) ++length;
  const std::string_view token = rest.substr(0, length);
  rest.remove_prefix(length);
  return token;
}

bool parse_request_line(std::string_view line, ApiRequest& request) {
  request.method = take_token(line);
  request.target = take_token(line);
  return take_token(line).starts_with(version_prefix);  // so all three tokens exist
}

// Returns the field of a header, or null for a header that nothing reads.
std::optional<std::string_view>* find_field(ApiRequest& request, std::string_view name) {
  if (equal_ignoring_case(name, "host")) return &request.host;
  if (equal_ignoring_case(name, "origin")) return &request.origin;
  if (equal_ignoring_case(name, "content-length")) return &request.content_length;
  if (equal_ignoring_case(name, "x-velmora-token")) return &request.session_token;
  return nullptr;
}

// Whether a line that starts with this byte may be one of those headers. Most lines of a browser are not, and
// need no further look.
bool may_start_field(char first) {
  const char letter = ascii_lower(first);
  return letter == 'h' || letter == 'o' || letter == 'c' || letter == 'x' || is_space(first);
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

}  // namespace

bool parse_head(std::string_view head, ApiRequest& request, std::uint64_t& content_length) {
  if (!parse_request_line(take_line(head), request)) return false;
  while (!head.empty()) parse_header_line(take_line(head), request);
  return parse_content_length(request, content_length);
}

RequestReader::State RequestReader::take(std::size_t count) {
  size_ += count;
  const std::string_view received(received_.data(), size_);
  if (!body_from_) {
    const std::size_t end = find_end_of_head(received, searched_);
    if (end == std::string_view::npos) {
      searched_ = size_;
      return size_ >= request_limit_bytes ? State::bad : State::incomplete;
    }
    const std::string_view head = received.substr(0, end - head_terminator.size());
    if (!parse_head(head, request_, content_length_)) return State::bad;
    body_from_ = end;
  }
  // Deliberately unsigned and unchecked: a length close to 2^64 wraps and passes the limit. The request then
  // ends at once with the bytes that have arrived.
  const std::uint64_t total = *body_from_ + content_length_;
  if (total > request_limit_bytes) return State::bad;
  if (size_ < total) return State::incomplete;
  request_.body = received.substr(*body_from_, content_length_);
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
