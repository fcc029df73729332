#include "statistics.h"

#include <algorithm>
#include <cstddef>

namespace velmora::bench {

namespace {

// Returns the value below which this part of the sorted values lies.
double quantile(const std::vector<double>& sorted, double part) {
  return sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1) + 0.5)];
}

}  // namespace

Spread spread_of(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return {quantile(values, 0.5), quantile(values, 0.25), quantile(values, 0.75)};
}

double undisturbed(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return quantile(values, 0.1);
}

Spread spread_of_ratios(const std::vector<double>& numerators, const std::vector<double>& denominators) {
  std::vector<double> ratios;
  for (std::size_t index = 0; index < numerators.size(); ++index) {
    ratios.push_back(numerators[index] / denominators[index]);
  }
  return spread_of(std::move(ratios));
}

}  // namespace velmora::bench
