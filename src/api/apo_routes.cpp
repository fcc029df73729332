#include "api/apo_routes.h"

#include <string>

#include "api/answers.h"
#include "binding/binding.h"
#include "engine/audio_service.h"
#include "json/find.h"
#include "json/write.h"

namespace velmora {
namespace {

std::string choose_endpoint(const ApiRequest& request, const EndpointController& controller) {
  auto id = json_find_string(request.body, "endpoint_id");
  return id && !id->empty() ? *std::move(id) : effective_render_endpoint_id(controller);
}

// The outcome of the restart. If it was not requested, status and detail are empty.
struct Restart {
  bool wanted = false;
  std::int32_t status = 0;
  std::string detail;
};

std::string result_json(std::string_view endpoint_id, std::string_view detail, const Restart& restart) {
  std::string out;
  JsonObject members(out);
  members.add("ok", true);
  members.add("bound", endpoint_is_bound(endpoint_id));
  members.add("endpoint_id", endpoint_id);
  members.add("detail", detail);
  members.add("audio_restarted", restart.wanted && restart.status == 0);
  members.add("audio_restart_error", restart.status);
  members.add("audio_restart_detail", restart.detail);
  members.end();
  return out;
}

}  // namespace

void post_apo(const Socket& socket, const ApiRequest& request, const EndpointController& controller) {
  const auto attach = json_find_bool(request.body, "attach");
  if (!attach) return write_bad_request(socket, "attach must be a boolean");
  const std::string endpoint_id = choose_endpoint(request, controller);
  if (endpoint_id.empty()) return write_bad_request(socket, "no render endpoint is selected");
  std::string guid;
  if (!endpoint_guid_from_id(endpoint_id, guid)) {
    return write_bad_request(socket, "endpoint_id must be a render endpoint identifier");
  }
  std::string detail;
  const std::int32_t status =
      *attach ? bind_endpoint_effect(endpoint_id, detail) : unbind_endpoint_effect(endpoint_id, detail);
  if (status != 0) return write_unavailable(socket, detail);
  Restart restart;
  restart.wanted = json_find_bool(request.body, "restart_audio").value_or(true);
  if (restart.wanted) restart.status = restart_audio_service(restart.detail);
  write_document(socket, result_json(endpoint_id, detail, restart));
}

}  // namespace velmora
