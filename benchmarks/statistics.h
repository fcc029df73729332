// Medians and undisturbed values of measurements.
#pragma once

#include <vector>

namespace velmora::bench {

struct Spread {
  double median;
  double low;   // lower quartile
  double high;  // upper quartile
};

// Returns the median and the quartiles. `values` must not be empty.
[[nodiscard]] Spread spread_of(std::vector<double> values);

// The spread of `numerators[i] / denominators[i]`. Both sets must have the same length and be measured side
// by side, so that a common slowdown cancels out.
[[nodiscard]] Spread spread_of_ratios(const std::vector<double>& numerators,
                                      const std::vector<double>& denominators);

// The lower decile: about the time of a turn in which nothing else used the processor. Whatever disturbs a
// turn only adds time. On a virtual machine whose host takes processors away it disturbs many turns, so that
// a median says little. `values` must not be empty.
[[nodiscard]] double undisturbed(std::vector<double> values);

}  // namespace velmora::bench
