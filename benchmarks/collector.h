// Collects the times of Google Benchmark's repetitions instead of printing them.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

#include "statistics.h"

namespace velmora::bench {

class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      times_ns_[run.run_name.function_name].push_back(run.cpu_accumulated_time * 1e9 /
                                                      static_cast<double>(run.iterations));
    }
  }
  // Median processor time of one iteration, nanoseconds. 0 if no benchmark has this name.
  [[nodiscard]] double median_ns(const std::string& name) const {
    const auto times = times_ns_.find(name);
    return times == times_ns_.end() ? 0 : spread_of(times->second).median;
  }

 private:
  std::map<std::string, std::vector<double>> times_ns_;
};

}  // namespace velmora::bench
