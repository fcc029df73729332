// Adds the effect to a render endpoint's effect chain, removes it, and checks whether it is there. Only
// registry values change; the audio engine reads them when the audio service next starts. No state is kept in
// memory, and a failure leaves completed steps in place. Results are status values (base/status.h).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "binding/chain.h"

namespace velmora {

// Returns the effect's class id as StringFromGUID2 writes it: 38 characters, upper case, with braces. The
// text is empty on failure.
[[nodiscard]] std::string effect_clsid_text();

// Return 0 if the change is made or was not needed. `detail` always describes the outcome in English. Both
// open the key for writing, which requires elevation on a real machine.
[[nodiscard]] std::int32_t bind_endpoint_effect(std::string_view endpoint_id, std::string& detail);
[[nodiscard]] std::int32_t unbind_endpoint_effect(std::string_view endpoint_id, std::string& detail);

struct EndpointBindingState {
  bool fx_key_present = false;  // the FxProperties key can be opened for reading
  bool bound = false;           // the chain contains the effect
  Chain chain;
  std::int32_t error_code = 0;  // status of the inspection
};

// Reads only. Returns the state's error_code.
[[nodiscard]] std::int32_t inspect_endpoint_binding(std::string_view endpoint_id,
                                                    EndpointBindingState& state);

// True if the endpoint's chain contains the effect. False also if the chain cannot be read.
[[nodiscard]] bool endpoint_is_bound(std::string_view endpoint_id);

}  // namespace velmora
