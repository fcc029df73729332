// Answers shared by several routes. Each writes one response.
#pragma once

#include <string_view>

#include "bridge/record.h"
#include "platform/sockets.h"

namespace velmora {

// 200 {"ok":true}
void write_ok(const Socket& socket);
// 200 with a JSON document.
void write_document(const Socket& socket, std::string_view body);

// The error form with its status: 400, 404, 503.
void write_bad_request(const Socket& socket, std::string_view message);
void write_not_found(const Socket& socket, std::string_view message);
void write_unavailable(const Socket& socket, std::string_view message);

// 503: the shared record cannot be written.
void write_bridge_unavailable(const Socket& socket);

// 200 {"ok":true} when the record was written, otherwise 503.
void answer_publication(const Socket& socket, BridgeResult result);

}  // namespace velmora
