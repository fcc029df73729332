// GET and PUT /api/v1/render/effects/eq, and everything below /api/v1/eq/presets.
#pragma once

#include <string_view>

#include "bridge/mapping.h"
#include "http/request.h"
#include "platform/sockets.h"

namespace velmora {

// Always 200; the defaults if the record cannot be read.
void get_eq(const Socket& socket, ControlBridge& bridge);

// 400: the body is invalid, and nothing is published. 503: the record cannot be written. `bypass` and
// `fade_ms` keep their values if the body lacks them.
void put_eq(const Socket& socket, const ApiRequest& request, ControlBridge& bridge);

// Handles every path that begins with /api/v1/eq/presets, with any method.
void serve_presets(const Socket& socket, const ApiRequest& request, std::string_view path);

}  // namespace velmora
