// Writes complete HTTP/1.1 responses.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/sockets.h"

namespace velmora {

inline constexpr std::string_view content_type_html = "text/html; charset=utf-8";
inline constexpr std::string_view content_type_script = "text/javascript; charset=utf-8";
// JSON documents and errors.
inline constexpr std::string_view content_type_json_document = "application/json; charset=utf-8";
// The fixed answers of routes that change something.
inline constexpr std::string_view content_type_json = "application/json";

// The body of a plain success.
inline constexpr std::string_view ok_body = "{\"ok\":true}";

// Returns the head of a response with a body of `body_size` bytes, and the blank line that ends it. Pure.
[[nodiscard]] std::string format_head(unsigned status, std::string_view reason, std::string_view content_type,
                                      std::size_t body_size);

// Returns head and body of a response as one byte string. Pure.
[[nodiscard]] std::string format_response(unsigned status, std::string_view reason,
                                          std::string_view content_type, std::string_view body);

// Sends all bytes; blocks while the peer keeps the connection open. Returns false if a send fails. Sending no
// bytes succeeds at once.
[[nodiscard]] bool send_all(const Socket& socket, std::string_view bytes);

// Sends a response. Send errors are ignored: the exchange ends either way.
void write_response(const Socket& socket, unsigned status, std::string_view reason,
                    std::string_view content_type, std::string_view body);

// Sends `{"error":"MESSAGE"}` with the given status. The message is escaped here.
void write_error(const Socket& socket, unsigned status, std::string_view reason, std::string_view message);

}  // namespace velmora
