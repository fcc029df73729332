#include "api/parameter_routes.h"

#include "api/answers.h"
#include "effects/parameters.h"

namespace velmora {
void put_algorithm(const Socket& socket, const ApiRequest& request, ControlBridge& bridge) {
  AlgorithmParameters parameters;
  // What the record holds, or the defaults where its word is not valid: either is a basis for the update.
  static_cast<void>(bridge.read_algorithm(parameters));
  const std::string_view refusal = apply_algorithm_body(request.body, parameters);
  if (!refusal.empty()) return write_bad_request(socket, refusal);
  answer_publication(socket, bridge.publish_algorithm(parameters));
}

void put_footstep(const Socket& socket, const ApiRequest& request, ControlBridge& bridge) {
  const std::optional<FootstepParameters> footstep = parse_footstep_body(request.body);
  if (!footstep) {
    return write_bad_request(socket, "bypass and enhance_strength (0..1) are required");
  }
  answer_publication(
      socket, bridge.publish_footstep(footstep->bypass, footstep->bypass_all, footstep->enhance_strength));
}

}  // namespace velmora
