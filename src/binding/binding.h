// Puts the effect into a render endpoint's effect chain, takes it out again, and looks whether it is there.
// Only registry values change; the audio engine sees them when the audio service next starts. Nothing is kept
// in memory, and a failure leaves what was done so far in place. Results are status values (base/status.h).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "binding/chain.h"

namespace velmora {

// The effect's class id as StringFromGUID2 writes it: 38 characters, upper case, with braces. Empty on
// failure.
[[nodiscard]] std::string effect_clsid_text();

// 0: done, or nothing had to be done. `detail` always says in English what happened. The key is opened for
// change, so both need elevation on a real machine.
[[nodiscard]] std::int32_t bind_endpoint_effect(std::string_view endpoint_id, std::string& detail);
[[nodiscard]] std::int32_t unbind_endpoint_effect(std::string_view endpoint_id, std::string& detail);

struct EndpointBindingState {
  bool fx_key_present = false;  // the FxProperties key can be opened for reading
  bool bound = false;           // the chain holds the effect
  Chain chain;
  std::int32_t error_code = 0;  // the status of the look
};

// Reads only. Gives the state's error_code.
[[nodiscard]] std::int32_t inspect_endpoint_binding(std::string_view endpoint_id,
                                                    EndpointBindingState& state);

// Whether the endpoint's chain holds the effect. False as well where the chain cannot be read.
[[nodiscard]] bool endpoint_is_bound(std::string_view endpoint_id);

}  // namespace velmora
