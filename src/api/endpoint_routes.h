// The routes of the audio endpoints. Each writes exactly one response.
#pragma once

#include <string_view>

#include "endpoints/selection.h"
#include "http/request.h"
#include "platform/sockets.h"

namespace velmora {

// GET /api/v1/devices: all endpoints. An error is part of the answer.
void get_devices(const Socket& socket, const EndpointController& controller);

// PUT /api/v1/devices/render and /api/v1/devices/capture: chooses `endpoint_id`. `path` selects the flow.
void put_device(const Socket& socket, const ApiRequest& request, std::string_view path,
                EndpointController& controller);

// PUT /api/v1/render/volume and /api/v1/render/mute: for the endpoint that the service uses.
void put_volume(const Socket& socket, const ApiRequest& request, const EndpointController& controller);
void put_mute(const Socket& socket, const ApiRequest& request, const EndpointController& controller);

}  // namespace velmora
