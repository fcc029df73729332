// The bytes of a response as a client receives them, written independently of the code under test.
#pragma once

#include <string>
#include <string_view>

namespace velmora {

inline std::string expected_response(std::string_view status_and_reason, std::string_view content_type,
                                     std::string_view body) {
  return "HTTP/1.1 " + std::string(status_and_reason) + "\r\nContent-Type: " + std::string(content_type) +
         "\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\nConnection: close\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n"
         "Content-Security-Policy: default-src 'self'; script-src 'self' 'unsafe-inline'; style-src 'self' "
         "'unsafe-inline'; img-src 'self' data:; connect-src 'self'; frame-ancestors 'none'\r\n\r\n" +
         std::string(body);
}

inline std::string expected_error(std::string_view status_and_reason, std::string_view message) {
  return expected_response(status_and_reason, "application/json; charset=utf-8",
                           "{\"error\":\"" + std::string(message) + "\"}");
}

inline std::string expected_document(std::string_view body) {
  return expected_response("200 OK", "application/json; charset=utf-8", body);
}

inline std::string expected_ok() { return expected_response("200 OK", "application/json", "{\"ok\":true}"); }

}  // namespace velmora
