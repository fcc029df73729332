#include "hammer.h"

#include <cstdint>

#include "platform/machine.h"
#include "reports.h"

namespace velmora::effect {
namespace {

constexpr std::uint32_t mode_count = 16;
constexpr std::uint32_t kind_count = 3;
constexpr unsigned query_count = 4;

bool is_wanted(const Record& record) { return decode_footstep(footstep_word(record)).bypass_all; }

// Without a sleep, whose end would come at another time in each thread: few rounds would be over before the
// next thread begins.
void wait_for_start(const Record& record, const std::atomic<bool>& stop) {
  while (!stop && !is_wanted(record)) std::this_thread::yield();
}

Format self_checking_format(std::uint32_t seed) {
  const auto channels = static_cast<std::uint8_t>(seed >> 8);
  return {channels * 1000u + 1, channels, static_cast<std::uint8_t>(channels ^ 0xFF),
          static_cast<std::uint8_t>(channels ^ 0x5A), static_cast<std::uint8_t>(channels ^ 0xA5)};
}

// Numbers of few bits, so that a document of 7 significant digits shows them whole.
float strength_of(std::uint32_t seed) { return static_cast<float>(seed & 0xFFFF) / 65536.0f; }
float gain_of(std::uint32_t seed) { return static_cast<float>(seed & 0xFFF) / 16.0f; }

// A round's seed ends as the round does: its lowest bit selects between alternating kinds.
void strike_once(const Record& record, const Reports& reports, std::uint32_t round, std::uint32_t seed) {
  const bool odd = round % 2 != 0;
  reports.initialize_attempt(record, {seed, ~seed, seed * 3, seed, odd});
  reports.initialize_success(record);
  reports.initialize_progress(record, seed, ~seed);
  reports.format_negotiation(record, odd ? stage_negotiate_input : stage_negotiate_input + 1);
  reports.lock_input_format(record, self_checking_format(seed));
  reports.lock_output_format(record, self_checking_format(~seed));
  reports.lock_progress(record, seed, ~seed);
  reports.lock_attempt(record);
  reports.lock_success(record, {seed, ~seed, odd, seed, ~seed});
  reports.applied(record, {odd, (seed & 2) != 0, strength_of(seed)});
  reports.processing(record, gain_of(seed), seed);
  reports.processed_block(record);
  reports.capture(record, static_cast<std::uint16_t>(seed), static_cast<std::uint16_t>(~seed), seed);
}

// One thread's share of the words that keep reports of several writers. A query belongs to one thread, and a
// mode stays reported: what a thread has reported is still there when it looks again.
class SharedWords {
 public:
  SharedWords(const Record& record, const Reports& reports, unsigned query)
      : record_(record), reports_(reports), query_(query) {}

  // Counts the lost reports of the previous round, and reports again.
  unsigned strike_once(std::uint32_t seed) {
    unsigned lost = 0;
    if (reported_) {
      if (query_state(record_, query_) != last_query_) ++lost;
      if (!is_mode_reported(record_, last_mode_, last_kind_)) ++lost;
    }
    last_query_ = {seed >> 8 & 63, (seed >> 8 & 1) == 0};
    last_mode_ = seed % mode_count;
    last_kind_ = seed / mode_count % kind_count;
    reports_.query(record_, query_, last_query_.value, last_query_.succeeded ? 0 : -1);
    reports_.mode(record_, last_mode_, last_kind_);
    reported_ = true;
    return lost;
  }

 private:
  const Record& record_;
  const Reports& reports_;
  unsigned query_;
  bool reported_ = false;
  QueryState last_query_{};
  unsigned last_mode_ = 0;
  unsigned last_kind_ = 0;
};

}  // namespace

Hammer::Hammer(const Record& record, const Options& options, const std::atomic<bool>& stop)
    : unfinished_(options.threads) {
  for (unsigned index = 0; index < options.threads; ++index) {
    threads_.emplace_back([this, &record, &options, &stop, index] { strike(record, options, stop, index); });
  }
}

Hammer::~Hammer() {
  for (std::thread& thread : threads_) thread.join();
}

void Hammer::strike(const Record& record, const Options& options, const std::atomic<bool>& stop,
                    unsigned index) {
  wait_for_start(record, stop);
  const Reports& reports = reports_for(options);
  // Spread over all bits, and from one thread and process to the next.
  constexpr std::uint32_t spread = 2654435761u;
  const std::uint32_t own = (own_process_id() * 16 + index) * spread;
  SharedWords shared(record, reports, (options.hammer_query + index) % query_count);
  std::uint32_t round = 0;
  for (; round < *options.hammer_rounds && is_wanted(record) && !stop; ++round) {
    const std::uint32_t seed = ((own ^ (round * spread)) & ~1u) | (round & 1);
    strike_once(record, reports, round, seed);
    lost_reports_ += shared.strike_once(seed);
  }
  rounds_ += round;
  odd_rounds_ += round / 2;
  --unfinished_;
}

}  // namespace velmora::effect
