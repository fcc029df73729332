#include "api/routes.h"

#include "api/account_routes.h"
#include "api/answers.h"
#include "api/apo_routes.h"
#include "api/capture_routes.h"
#include "api/endpoint_routes.h"
#include "api/equalizer_routes.h"
#include "api/parameter_routes.h"
#include "api/status_routes.h"
#include "http/gate.h"
#include "http/request.h"
#include "http/response.h"

namespace velmora {
namespace {

// Returns the target up to its first question mark, neither decoded nor normalised.
std::string_view path_of(const ApiRequest& request) {
  return request.target.substr(0, request.target.find('?'));
}

void write_route_not_found(const Socket& socket) { write_not_found(socket, "route not found"); }

// The pages need no token: the address that the banner prints must load before its script can send one.
bool serve_page(const Socket& socket, const ApiRequest& request, std::string_view path,
                const UiPages& pages) {
  if (request.method != "GET") return false;
  const auto serve = [&](const StoredResponse& page) {
    static_cast<void>(send_all(socket, page.bytes()));
    return true;
  };
  if (path == "/" || path == "/index.html") return serve(pages.index);
  if (path == "/help.html") return serve(pages.help);
  if (path == "/advanced.html") return serve(pages.advanced);
  if (path == "/velmora-eq.js") return serve(pages.eq_script);
  return false;
}

// Tries the routes in order. The caller has checked the token.
void dispatch(const Socket& socket, const ApiRequest& request, std::string_view path, ServiceState& state) {
  ControlBridge& bridge = state.bridge;
  const auto matches = [&](std::string_view method, std::string_view route) {
    return path == route && request.method == method;  // most routes differ in the path's length
  };
  if (matches("GET", "/api/v1/status"))
    return get_status(socket, bridge, state.endpoints, state.account.session);
  if (matches("PUT", "/api/v1/render/effects/algorithm")) return put_algorithm(socket, request, bridge);
  if (matches("POST", "/api/v1/account/register")) return post_register(socket, request, state.account);
  if (matches("POST", "/api/v1/account/password")) return post_password(socket, request, state.account);
  if (matches("POST", "/api/v1/account/qrcode")) return post_qrcode(socket, state.account);
  if (matches("GET", "/api/v1/account/poll")) return get_poll(socket, request, state.account);
  if (matches("POST", "/api/v1/account/referrer")) return post_referrer(socket, request, state.account);
  if (matches("POST", "/api/v1/account/unbind")) return post_unbind(socket, state.account);
  if (matches("POST", "/api/v1/account/logout")) return post_logout(socket, state.account);
  if (matches("PUT", "/api/v1/render/effects/eq")) return put_eq(socket, request, bridge);
  if (matches("GET", "/api/v1/render/effects/eq")) return get_eq(socket, bridge);
  if (path.starts_with("/api/v1/eq/presets")) return serve_presets(socket, request, path);
  if (matches("POST", "/api/v1/debug/capture")) return post_capture(socket, request, bridge);
  if (matches("GET", "/api/v1/debug/capture/ready")) return get_capture_ready(socket);
  if (matches("GET", "/api/v1/debug/capture/download")) return get_capture_download(socket);
  if (matches("GET", "/api/v1/devices")) return get_devices(socket, state.endpoints);
  if (matches("PUT", "/api/v1/devices/render") || matches("PUT", "/api/v1/devices/capture")) {
    return put_device(socket, request, path, state.endpoints);
  }
  if (matches("POST", "/api/v1/render/apo")) return post_apo(socket, request, state.endpoints);
  if (matches("PUT", "/api/v1/render/volume")) return put_volume(socket, request, state.endpoints);
  if (matches("PUT", "/api/v1/render/mute")) return put_mute(socket, request, state.endpoints);
  if (matches("PUT", "/api/v1/render/effects/footstep")) return put_footstep(socket, request, bridge);
  write_route_not_found(socket);
}

}  // namespace

void handle_connection(const Socket& socket, ServiceState& state) {
  RequestReader reader;
  if (!read_request(socket, reader)) return write_bad_request(socket, "invalid request");
  const ApiRequest& request = reader.request();
  if (!host_allowed(request, state.port) || !origin_allowed(request, state.port)) {
    return write_error(socket, 403, "Forbidden", "invalid local origin");
  }
  const std::string_view path = path_of(request);
  if (serve_page(socket, request, path, state.pages)) return;
  if (!path.starts_with("/api/")) return write_route_not_found(socket);
  if (!token_allowed(request, state.session_token)) {
    return write_error(socket, 401, "Unauthorized", "missing or invalid session token");
  }
  dispatch(socket, request, path, state);
}

}  // namespace velmora
