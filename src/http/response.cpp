#include "http/response.h"

#include "json/escape.h"

namespace velmora {
namespace {

// The headers of every response except the capture download, and the blank line that ends the head.
constexpr std::string_view fixed_head =
    "Connection: close\r\n"
    "Cache-Control: no-store\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "Content-Security-Policy: default-src 'self'; script-src 'self' 'unsafe-inline'; style-src 'self' "
    "'unsafe-inline'; img-src 'self' data:; connect-src 'self'; frame-ancestors 'none'\r\n"
    "\r\n";

// Returns the head, with memory reserved for `body_capacity` more bytes.
std::string start_response(unsigned status, std::string_view reason, std::string_view content_type,
                           std::size_t body_size, std::size_t body_capacity) {
  constexpr std::size_t numbers_and_names = 96;
  std::string out;
  out.reserve(numbers_and_names + reason.size() + content_type.size() + fixed_head.size() + body_capacity);
  out += "HTTP/1.1 ";
  out += std::to_string(status);
  out += ' ';
  out += reason;
  out += "\r\nContent-Type: ";
  out += content_type;
  out += "\r\nContent-Length: ";
  out += std::to_string(body_size);
  out += "\r\n";
  out += fixed_head;
  return out;
}

}  // namespace

std::string format_head(unsigned status, std::string_view reason, std::string_view content_type,
                        std::size_t body_size) {
  return start_response(status, reason, content_type, body_size, 0);
}

std::string format_response(unsigned status, std::string_view reason, std::string_view content_type,
                            std::string_view body) {
  return start_response(status, reason, content_type, body.size(), body.size()).append(body);
}

bool send_all(const Socket& socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const SocketCount sent = send_bytes(socket, bytes.data(), bytes.size());
    if (sent.count < 1) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent.count));
  }
  return true;
}

void write_response(const Socket& socket, unsigned status, std::string_view reason,
                    std::string_view content_type, std::string_view body) {
  static_cast<void>(send_all(socket, format_response(status, reason, content_type, body)));
}

void write_error(const Socket& socket, unsigned status, std::string_view reason, std::string_view message) {
  const std::string body = "{\"error\":\"" + json_escape(message) + "\"}";
  write_response(socket, status, reason, content_type_json_document, body);
}

}  // namespace velmora
