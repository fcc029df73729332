// Reports without a pause, outside of a life. What is written checks itself, so that a reader sees torn words
// and lost counts. The rules are in docs/record.md.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "options.h"
#include "record.h"

namespace velmora::effect {

// Threads that report in as many rounds as the options say, once the service has set `bypass all`: several
// processes that are started one after the other begin at once. They end at the stop too; the destructor
// waits for them. The record, the options and the stop outlive the object.
class Hammer {
 public:
  Hammer(const Record& record, const Options& options, const std::atomic<bool>& stop);
  ~Hammer();
  Hammer(const Hammer&) = delete;
  Hammer& operator=(const Hammer&) = delete;

  [[nodiscard]] bool is_finished() const { return unfinished_ == 0; }
  // Rounds of all threads, and those of odd numbers (each thread counts from 0); final once it is finished.
  [[nodiscard]] std::uint64_t rounds() const { return rounds_; }
  [[nodiscard]] std::uint64_t odd_rounds() const { return odd_rounds_; }
  // How often a report was gone again that nobody else had replaced; final likewise.
  [[nodiscard]] std::uint64_t lost_reports() const { return lost_reports_; }

 private:
  void strike(const Record& record, const Options& options, const std::atomic<bool>& stop, unsigned index);

  std::atomic<unsigned> unfinished_;
  std::atomic<std::uint64_t> rounds_{0};
  std::atomic<std::uint64_t> odd_rounds_{0};
  std::atomic<std::uint64_t> lost_reports_{0};
  std::vector<std::thread> threads_;
};

}  // namespace velmora::effect
