#include "api/parameter_routes.h"

#include "api/answers.h"
#include "effects/parameters.h"

namespace velmora {

void put_algorithm(const Socket& socket, const ApiRequest& request, ControlBridge& bridge) {
  AlgorithmParameters present;
  // Start from the record, or from the defaults if its word is not valid.
  static_cast<void>(bridge.read_algorithm(present));
  const auto [parameters, error] = parse_algorithm_body(request.body, present);
  if (!error.empty()) return write_bad_request(socket, error);
  answer_publication(socket, bridge.publish_algorithm(parameters));
}

void put_footstep(const Socket& socket, const ApiRequest& request, ControlBridge& bridge) {
  const auto [footstep, error] = parse_footstep_body(request.body);
  if (!error.empty()) return write_bad_request(socket, error);
  answer_publication(
      socket, bridge.publish_footstep(footstep.bypass, footstep.bypass_all, footstep.enhance_strength));
}

}  // namespace velmora
