// Request bodies of the two parameter routes, taken apart and checked. Pure.
#pragma once

#include <optional>
#include <string_view>

#include "bridge/record.h"

namespace velmora {

// Takes the keys that are there into `parameters`; an absent one leaves its value. Returns the message for
// the first key that is out of range, with `parameters` then in any state, or an empty text.
[[nodiscard]] std::string_view apply_algorithm_body(std::string_view body, AlgorithmParameters& parameters);

// The values of a footstep body (`raw` is 0), or no value when `bypass` or `enhance_strength` is missing or
// the strength is not within 0..1. An absent `bypass_all` is false: a client that knows nothing of it
// switches it off.
[[nodiscard]] std::optional<FootstepParameters> parse_footstep_body(std::string_view body);

}  // namespace velmora
