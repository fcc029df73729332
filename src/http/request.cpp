#include "http/request.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "base/ascii.h"

namespace velmora {
namespace {

constexpr std::string_view head_terminator = "\r\n\r\n";
constexpr std::string_view version_prefix = "HTTP/1.";

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

void parse_header_line(std::string_view line, ApiRequest& request) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return;
  request.headers.insert_or_assign(to_lower_copy(trim(line.substr(0, colon))),
                                   trim_copy(line.substr(colon + 1)));
}

// Accepts only decimal digits that fit into 64 bits. Sets 0 without the header.
bool parse_content_length(const ApiRequest& request, std::uint64_t& content_length) {
  content_length = 0;
  const auto header = request.headers.find("content-length");
  if (header == request.headers.end()) return true;
  const char* const end = header->second.data() + header->second.size();
  const auto parsed = std::from_chars(header->second.data(), end, content_length);
  return parsed.ec == std::errc() && parsed.ptr == end;
}

}  // namespace

bool parse_head(std::string_view head, ApiRequest& request, std::uint64_t& content_length) {
  if (!parse_request_line(take_line(head), request)) return false;
  while (!head.empty()) parse_header_line(take_line(head), request);
  return parse_content_length(request, content_length);
}

RequestReader::State RequestReader::take(std::string_view bytes, ApiRequest& request) {
  if (buffer_.empty()) buffer_.reserve(read_chunk_bytes);
  buffer_ += bytes;
  if (!body_from_) {
    const std::size_t head_length = buffer_.find(head_terminator, searched_);
    if (head_length == std::string::npos) {
      // The terminator may be split: keep its first three bytes in the search.
      searched_ = buffer_.size() - std::min(buffer_.size(), head_terminator.size() - 1);
      return buffer_.size() >= request_limit_bytes ? State::bad : State::incomplete;
    }
    const std::string_view head = std::string_view(buffer_).substr(0, head_length);
    if (!parse_head(head, request, content_length_)) return State::bad;
    body_from_ = head_length + head_terminator.size();
  }
  // Deliberately unsigned and unchecked: a length close to 2^64 wraps and passes the limit. The request then
  // ends at once with the bytes that have arrived.
  const std::uint64_t total = *body_from_ + content_length_;
  if (total > request_limit_bytes) return State::bad;
  if (buffer_.size() < total) return State::incomplete;
  // The buffer is no longer needed: cut it down to the body and move it out.
  buffer_.resize(*body_from_ + std::min<std::uint64_t>(content_length_, buffer_.size() - *body_from_));
  buffer_.erase(0, *body_from_);
  request.body = std::move(buffer_);
  return State::complete;
}

bool read_request(const Socket& socket, ApiRequest& request) {
  RequestReader reader;
  std::array<char, read_chunk_bytes> piece;
  RequestReader::State state = RequestReader::State::incomplete;
  while (state == RequestReader::State::incomplete) {
    const SocketCount received = receive_bytes(socket, piece.data(), piece.size());
    if (received.count <= 0) return false;
    state = reader.take({piece.data(), static_cast<std::size_t>(received.count)}, request);
  }
  return state == RequestReader::State::complete;
}

}  // namespace velmora
