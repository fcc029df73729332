// The status document: one JSON object that shows the whole system.
#pragma once

#include <string>
#include <string_view>

#include "account/account_session.h"
#include "binding/binding.h"
#include "bridge/mapping.h"
#include "endpoints/volume.h"
#include "engine/probes.h"

namespace velmora {

// What the document is written from. The values are those that stand where nothing could be read.
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
  EndpointBindingState binding;  // of the endpoint that the service works on
};

// Asks the record and the machine; it changes nothing. Without an endpoint (an empty id, UTF-8) no look at
// its binding takes place, and the snapshot's binding has status_invalid_argument.
[[nodiscard]] StatusSnapshot take_status_snapshot(ControlBridge& bridge, const EndpointVolumeState& volume,
                                                  std::string_view endpoint_id);

// The text of a snapshot. Pure but for algorithm_version. Floats have 7 significant digits; one of the record
// that is no finite number goes out as nan, inf or -inf, which is no JSON.
[[nodiscard]] std::string write_status_json(const StatusSnapshot& snapshot, std::string_view endpoint_id,
                                            const AccountSession& session);

// Both in one.
[[nodiscard]] std::string build_status_json(ControlBridge& bridge, const EndpointVolumeState& volume,
                                            std::string_view endpoint_id, const AccountSession& session);

}  // namespace velmora
