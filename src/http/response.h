// Writing one complete HTTP/1.1 response.
#pragma once

#include <string>
#include <string_view>

#include "platform/sockets.h"

namespace velmora {

inline constexpr std::string_view content_type_html = "text/html; charset=utf-8";
inline constexpr std::string_view content_type_script = "text/javascript; charset=utf-8";
// Documents and errors.
inline constexpr std::string_view content_type_json_document = "application/json; charset=utf-8";
// The fixed success answers of writing routes.
inline constexpr std::string_view content_type_json = "application/json";

// The fixed success answer.
inline constexpr std::string_view ok_body = "{\"ok\":true}";

// Head and body of a response as one byte string. Pure.
[[nodiscard]] std::string format_response(unsigned status, std::string_view reason,
                                          std::string_view content_type, std::string_view body);

// Sends all bytes, blocking for as long as the peer keeps the connection open. False when the peer has gone.
// An empty range is true at once.
[[nodiscard]] bool send_all(const Socket& socket, std::string_view bytes);

// Sends a response. A failed send is not told: the exchange is over either way.
void write_response(const Socket& socket, unsigned status, std::string_view reason,
                    std::string_view content_type, std::string_view body);

// Sends the error form `{"error":"MESSAGE"}`.
void write_error(const Socket& socket, unsigned status, std::string_view reason, std::string_view message);

}  // namespace velmora
