#include "life.h"

#include <algorithm>

#include "platform/clock.h"
#include "reports.h"

namespace velmora::effect {
namespace {

constexpr std::uint32_t result_done = 0;
// winerror.h and audioclient.h
constexpr std::uint32_t result_out_of_memory = 0x8007000E;
constexpr std::uint32_t result_unsupported_format = 0x88890008;
constexpr std::int32_t result_not_implemented = -2147467263;

// Stages, codes of the effect's own.
constexpr std::uint32_t stage_checks_data = 2;
constexpr std::uint32_t stage_loads_algorithm = 4;
constexpr std::uint32_t stage_initialized = 6;
constexpr std::uint32_t stage_prepares_pipeline = 5;
constexpr std::uint32_t stage_locked = 8;
constexpr std::uint32_t stage_negotiate_output = 10;
constexpr std::uint32_t stage_negotiated = 11;

constexpr std::uint32_t data_bytes = 96;
constexpr std::uint32_t structure = 4;
constexpr unsigned mode_count = 16;
constexpr unsigned first_mode = 1;
constexpr std::uint32_t pipeline_mode = 2;
constexpr Format input_format = {48000, 2, 24, 4, 1};
constexpr Format output_format = {48000, 2, 32, 4, 3};

// 10 ms in units of 100 ns: more than the word has room for.
constexpr std::uint32_t latency = 100'000;

constexpr std::uint32_t longest_pause_ms = 20;
constexpr std::uint32_t quiet_pause_ms = 5;

void pause(const std::atomic<bool>& stop, std::uint32_t duration_ms) {
  while (duration_ms > 0 && !stop) {
    const std::uint32_t piece_ms = std::min(duration_ms, longest_pause_ms);
    sleep_ms(piece_ms);
    duration_ms -= piece_ms;
  }
}

// Swings between 2 and 4 dB, by a quarter of a decibel from one block to the next.
float gain_of(std::uint32_t block) {
  const std::uint32_t place = block % 16;
  return 2.0f + 0.25f * static_cast<float>(place < 8 ? place : 16 - place);
}

}  // namespace

Life::Life(const Record& record, const Options& options, const std::atomic<bool>& stop,
           const std::atomic<bool>& quiet)
    : record_(record), options_(options), stop_(stop), quiet_(quiet), unfinished_(options.instances) {
  for (unsigned instance = 0; instance < options.instances; ++instance) {
    instances_.emplace_back([this, instance] { live(instance); });
  }
}

Life::~Life() {
  for (std::thread& instance : instances_) instance.join();
}

void Life::live(unsigned instance) {
  // An instance serves one processing mode.
  const unsigned mode = (first_mode + instance) % mode_count;
  if (initialize(mode, true)) {
    negotiate(stage_negotiate_input);
    negotiate(stage_negotiate_output);
    answer_queries();
    if (initialize(mode, false) && lock(mode)) process(mode);
  }
  --unfinished_;
}

bool Life::initialize(unsigned mode, bool discovery) const {
  const Reports& reports = reports_for(options_);
  reports.initialize_attempt(record_, {data_bytes, data_bytes, structure, mode, discovery});
  reports.initialize_progress(record_, stage_checks_data, result_pending);
  // Discovery asks what the effect can do, for which it needs no algorithm.
  if (!discovery) {
    reports.initialize_progress(record_, stage_loads_algorithm, result_pending);
    if (options_.life_fault == LifeFault::initialize) {
      reports.initialize_progress(record_, stage_loads_algorithm, result_out_of_memory);
      return false;
    }
    if (options_.life_fault == LifeFault::hang) return false;
    reports.mode(record_, mode, mode_initialized);
  }
  reports.initialize_success(record_);
  reports.initialize_progress(record_, stage_initialized, result_done);
  return true;
}

void Life::negotiate(std::uint32_t stage) const {
  const Reports& reports = reports_for(options_);
  reports.format_negotiation(record_, stage);
  reports.lock_input_format(record_, input_format);
  reports.lock_output_format(record_, output_format);
  reports.lock_progress(record_, stage_negotiated, result_done);
}

void Life::answer_queries() const {
  const Reports& reports = reports_for(options_);
  const bool fails = options_.life_fault == LifeFault::query;
  const std::int32_t result = fails ? result_not_implemented : 0;
  const auto answer = [&](unsigned index, std::uint32_t value) {
    reports.query(record_, index, fails ? 0 : value, result);
  };
  answer(query_effects, 1);
  answer(query_controllable_effects, 1);
  answer(query_latency, latency);
  answer(query_input_channels, input_format.channels);
}

bool Life::lock(unsigned mode) const {
  const Reports& reports = reports_for(options_);
  reports.lock_attempt(record_);
  // The formats that are refused are not shown, and nothing is left of those that were agreed on before.
  if (options_.life_fault == LifeFault::lock) {
    reports.lock_progress(record_, stage_checks_data, result_unsupported_format);
    return false;
  }
  reports.lock_input_format(record_, input_format);
  reports.lock_output_format(record_, output_format);
  reports.lock_progress(record_, stage_prepares_pipeline, result_pending);
  reports.lock_progress(record_, stage_locked, result_done);
  reports.lock_success(record_, {output_format.sample_rate, output_format.channels, true, pipeline_mode, 0});
  reports.mode(record_, mode, mode_locked);
  return true;
}

void Life::process(unsigned mode) {
  std::vector<std::thread> threads;
  for (unsigned index = 0; index < options_.threads; ++index) {
    threads.emplace_back([this, mode] { process_blocks(mode); });
  }
  for (std::thread& thread : threads) thread.join();
}

void Life::process_blocks(unsigned mode) {
  const Reports& reports = reports_for(options_);
  for (std::uint32_t block = 1; !stop_; ++block) {
    while (quiet_ && !stop_) sleep_ms(quiet_pause_ms);
    if (stop_) return;
    reports.processed_block(record_);
    reports.processing(record_, options_.gain_db.value_or(gain_of(block)), block);
    reports.mode(record_, mode, mode_processed);
    processing_ = true;
    if (block == options_.life_blocks) return;
    pause(stop_, options_.block_ms);
  }
}

}  // namespace velmora::effect
