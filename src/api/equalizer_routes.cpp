#include "api/equalizer_routes.h"

#include <string>

#include "api/answers.h"
#include "base/ascii.h"
#include "effects/equalizer.h"
#include "effects/presets.h"
#include "http/response.h"

namespace velmora {
namespace {

constexpr std::string_view collection = "/api/v1/eq/presets";

// Returns the live setting, or the defaults if it cannot be read.
EqSettings read_live_eq(ControlBridge& bridge) {
  EqSettings settings;
  static_cast<void>(bridge.read_eq(settings));
  return settings;
}

void write_no_such_preset(const Socket& socket) { write_not_found(socket, "no such preset"); }

void get_preset(const Socket& socket, std::string_view directory, std::string_view name) {
  const std::string bytes = read_preset(directory, name);
  if (bytes.empty()) return write_no_such_preset(socket);
  write_document(socket, bytes);
}

// Values that the body lacks take the defaults, whatever the live equalizer is set to.
void put_preset(const Socket& socket, std::string_view body, std::string_view directory,
                std::string_view name) {
  const auto [settings, error] = parse_eq(body, {});
  if (!error.empty()) return write_bad_request(socket, error);
  if (!write_preset(directory, name, settings)) {
    return write_error(socket, 500, "Internal Server Error", "cannot write the preset file");
  }
  write_ok(socket);
}

void remove_preset(const Socket& socket, std::string_view directory, std::string_view name) {
  if (!delete_preset(directory, name)) return write_no_such_preset(socket);
  write_ok(socket);
}

void serve_preset(const Socket& socket, const ApiRequest& request, std::string_view directory,
                  std::string_view name) {
  if (!preset_name_valid(name)) {
    return write_bad_request(socket, "preset name may contain letters, digits, spaces, - and _ only");
  }
  if (request.method == "GET") return get_preset(socket, directory, name);
  if (request.method == "PUT") return put_preset(socket, request.body, directory, name);
  if (request.method == "DELETE") return remove_preset(socket, directory, name);
  write_error(socket, 405, "Method Not Allowed", "unsupported method");
}

}  // namespace

void get_eq(const Socket& socket, ControlBridge& bridge) {
  std::string body;
  write_eq_json(body, read_live_eq(bridge));
  write_document(socket, body);
}

void put_eq(const Socket& socket, const ApiRequest& request, ControlBridge& bridge) {
  const auto [settings, error] = parse_eq(request.body, read_live_eq(bridge));
  if (!error.empty()) return write_bad_request(socket, error);
  answer_publication(socket, bridge.publish_eq(settings));
}

void serve_presets(const Socket& socket, const ApiRequest& request, std::string_view path) {
  const std::string directory = preset_directory();
  std::string_view rest = path.substr(collection.size());
  if (rest.empty() && request.method == "GET") {
    return write_document(socket, list_presets(directory));
  }
  if (rest.size() > 1 && rest.front() == '/') {
    rest.remove_prefix(1);
    return serve_preset(socket, request, directory, url_decode(rest));
  }
  write_not_found(socket, "route not found");
}

}  // namespace velmora
