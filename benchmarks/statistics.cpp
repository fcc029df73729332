#include "statistics.h"

#include <algorithm>
#include <cstddef>

namespace velmora::bench {

Spread spread_of(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const auto at = [&](double part) {
    return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1) + 0.5)];
  };
  return {at(0.5), at(0.25), at(0.75)};
}

Spread spread_of_ratios(const std::vector<double>& numerators, const std::vector<double>& denominators) {
  std::vector<double> ratios;
  for (std::size_t index = 0; index < numerators.size(); ++index) {
    ratios.push_back(numerators[index] / denominators[index]);
  }
  return spread_of(std::move(ratios));
}

}  // namespace velmora::bench
