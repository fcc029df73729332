// Request bodies of the two parameter routes, taken apart and checked. Pure.
#pragma once

#include <string_view>

#include "base/parsed.h"
#include "bridge/record.h"

namespace velmora {

// `parameters` with the keys that the body has; an absent one leaves its value. The error is that of the
// first key that is out of range.
[[nodiscard]] Parsed<AlgorithmParameters> parse_algorithm_body(std::string_view body,
                                                               AlgorithmParameters parameters);

// The values of a footstep body (`raw` is 0). An error when `bypass` or `enhance_strength` is missing or the
// strength is not within 0..1. An absent `bypass_all` is false: a client that does not know it switches it
// off.
[[nodiscard]] Parsed<FootstepParameters> parse_footstep_body(std::string_view body);

}  // namespace velmora
