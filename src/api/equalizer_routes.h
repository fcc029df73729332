// GET and PUT /api/v1/render/effects/eq, and everything below /api/v1/eq/presets.
#pragma once

#include <string_view>

#include "bridge/mapping.h"
#include "http/request.h"
#include "platform/sockets.h"

namespace velmora {

// Always 200: the defaults where the record cannot be read.
void get_eq(const Socket& socket, ControlBridge& bridge);

// 400: the body is refused and nothing is published; 503: the record cannot be written. What the body leaves
// out of `bypass` and `fade_ms` stays as it is.
void put_eq(const Socket& socket, const ApiRequest& request, ControlBridge& bridge);

// Takes every path that begins with /api/v1/eq/presets, whatever the method.
void serve_presets(const Socket& socket, const ApiRequest& request, std::string_view path);

}  // namespace velmora
