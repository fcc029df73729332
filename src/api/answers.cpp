#include "api/answers.h"

#include "http/response.h"

namespace velmora {

void answer_publication(const Socket& socket, BridgeResult result) {
  if (result != BridgeResult::done) {
    return write_error(socket, 503, "Service Unavailable", "shared control bridge update failed");
  }
  write_response(socket, 200, "OK", content_type_json, ok_body);
}

}  // namespace velmora
