// Medians of what was measured.
#pragma once

#include <vector>

namespace velmora::bench {

struct Spread {
  double median;
  double low;   // lower quartile
  double high;  // upper quartile
};

// Not for an empty set.
[[nodiscard]] Spread spread_of(std::vector<double> values);

// `numerators[i] / denominators[i]` of sets of the same length that were measured side by side: what slows
// both down does not show.
[[nodiscard]] Spread spread_of_ratios(const std::vector<double>& numerators,
                                      const std::vector<double>& denominators);

}  // namespace velmora::bench
