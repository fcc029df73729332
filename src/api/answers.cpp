#include "api/answers.h"

#include "http/response.h"
#include "http/stored_response.h"

namespace velmora {

void write_ok(const Socket& socket) {
  static const StoredResponse response(content_type_json, ok_body);
  static_cast<void>(send_all(socket, response.bytes()));
}

void write_document(const Socket& socket, std::string_view body) {
  write_response(socket, 200, "OK", content_type_json_document, body);
}

void write_bad_request(const Socket& socket, std::string_view message) {
  write_error(socket, 400, "Bad Request", message);
}

void write_not_found(const Socket& socket, std::string_view message) {
  write_error(socket, 404, "Not Found", message);
}

void write_unavailable(const Socket& socket, std::string_view message) {
  write_error(socket, 503, "Service Unavailable", message);
}

void write_bridge_unavailable(const Socket& socket) {
  write_unavailable(socket, "shared control bridge update failed");
}

void answer_publication(const Socket& socket, BridgeResult result) {
  if (result != BridgeResult::done) return write_bridge_unavailable(socket);
  write_ok(socket);
}

}  // namespace velmora
