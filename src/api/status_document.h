// The status document: one JSON object that describes the whole system.
#pragma once

#include <string>
#include <string_view>

#include "account/account_session.h"
#include "binding/binding.h"
#include "bridge/mapping.h"
#include "endpoints/volume.h"
#include "engine/probes.h"

namespace velmora {

// The values of the document. The defaults apply where nothing could be read.
struct StatusSnapshot {
  EndpointVolumeState volume;
  bool bridge_available = false;  // the enhancement could be read
  FootstepParameters footstep = {true, false, 0, 0};
  AlgorithmParameters algorithm;
  bool diagnostics_available = false;
  ControlDiagnostics diagnostics;
  EffectInstallState install;
  std::string effect_clsid;
  AudioEngineState engine;
  EndpointBindingState binding;  // of the endpoint that the service uses
};

// Reads the record and the machine; changes nothing. If `endpoint_id` (UTF-8) is empty, the binding is not
// inspected and its error_code is status_invalid_argument.
[[nodiscard]] StatusSnapshot take_status_snapshot(ControlBridge& bridge, const EndpointVolumeState& volume,
                                                  std::string_view endpoint_id);

// Returns a snapshot as text. Pure except for algorithm_version. Floats have 7 significant digits. A float in
// the record that is not finite is written as nan, inf or -inf, which is not JSON.
[[nodiscard]] std::string write_status_json(const StatusSnapshot& snapshot, std::string_view endpoint_id,
                                            const AccountSession& session);

// Takes a snapshot and returns it as text.
[[nodiscard]] std::string build_status_json(ControlBridge& bridge, const EndpointVolumeState& volume,
                                            std::string_view endpoint_id, const AccountSession& session);

}  // namespace velmora
