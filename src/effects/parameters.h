// Parses and checks the request bodies of the two parameter routes. Pure.
#pragma once

#include <string_view>

#include "base/parsed.h"
#include "bridge/record.h"

namespace velmora {

// Returns `parameters` updated with the keys in the body; absent keys leave their values. The error is that
// of the first key out of range.
[[nodiscard]] Parsed<AlgorithmParameters> parse_algorithm_body(std::string_view body,
                                                               AlgorithmParameters parameters);

// Returns the values of a footstep body (`raw` is 0). An error if `bypass` or `enhance_strength` is missing,
// or the strength is not within 0..1. An absent `bypass_all` is false: clients unaware of it switch it off.
[[nodiscard]] Parsed<FootstepParameters> parse_footstep_body(std::string_view body);

}  // namespace velmora
