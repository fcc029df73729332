// Written from docs/record.md and from nothing else.
#include <algorithm>
#include <bit>

#include "reports.h"
#include "words.h"

namespace velmora::effect {
namespace {

// Offsets in bytes.
constexpr std::size_t at_initialize_count = 0x018;
constexpr std::size_t at_lock_count = 0x020;
constexpr std::size_t at_stream = 0x028;
constexpr std::size_t at_pipeline = 0x030;
constexpr std::size_t at_query = 0x038;
constexpr std::size_t at_initialize_attempts = 0x040;
constexpr std::size_t at_initialize_sizes = 0x048;
constexpr std::size_t at_initialize_mode = 0x050;
constexpr std::size_t at_initialize_progress = 0x058;
constexpr std::size_t at_lock_attempt = 0x060;
constexpr std::size_t at_format_negotiation = 0x064;
constexpr std::size_t at_lock_progress = 0x068;
constexpr std::size_t at_lock_input = 0x070;
constexpr std::size_t at_lock_output = 0x078;
constexpr std::size_t at_applied = 0x080;
constexpr std::size_t at_processing = 0x088;
constexpr std::size_t at_mode_masks = 0x090;
constexpr std::size_t at_total_processed_blocks = 0x098;
constexpr std::size_t at_capture_report = 0x0B0;

constexpr std::uint32_t stage_entered = 1;

std::uint64_t bit(unsigned position, bool value = true) { return std::uint64_t{value} << position; }

// `upper` in bits 32..62 and a flag in bit 63.
std::uint64_t flagged(bool flag, std::uint32_t upper, std::uint32_t lower) {
  return bit(63, flag) | ((std::uint64_t{upper} << 32) & ~bit(63)) | lower;
}

std::uint64_t halves(std::uint32_t upper, std::uint32_t lower) {
  return (std::uint64_t{upper} << 32) | lower;
}

void initialize_progress(const Record& record, std::uint32_t stage, std::uint32_t result) {
  store(record, at_initialize_progress, halves(stage, result));
}

void initialize_attempt(const Record& record, const Initialization& attempt) {
  store(record, at_initialize_sizes, halves(attempt.data_size, attempt.declared_size));
  store(record, at_initialize_mode, flagged(attempt.discovery, attempt.structure, attempt.mode));
  initialize_progress(record, stage_entered, result_pending);
  add(record, at_initialize_attempts, attempt.discovery ? bit(32) : bit(0));
}

void initialize_success(const Record& record) { add<std::uint64_t>(record, at_initialize_count, 1); }

void lock_progress(const Record& record, std::uint32_t stage, std::uint32_t result) {
  store(record, at_lock_progress, halves(stage, result));
}

void enter_lock(const Record& record, std::uint32_t stage) {
  store<std::uint64_t>(record, at_lock_input, 0);
  store<std::uint64_t>(record, at_lock_output, 0);
  lock_progress(record, stage, result_pending);
}

void format_negotiation(const Record& record, std::uint32_t stage) {
  enter_lock(record, stage);
  add<std::uint32_t>(record, at_format_negotiation, stage == stage_negotiate_input ? 1 : 0x10000);
}

void lock_attempt(const Record& record) {
  enter_lock(record, stage_entered);
  add<std::uint32_t>(record, at_lock_attempt, 1);
}

std::uint64_t format_word(const Format& format) {
  const std::uint32_t lower = (std::uint32_t{format.type} << 24) |
                              (std::uint32_t{format.container_bytes} << 16) |
                              (std::uint32_t{format.valid_bits} << 8) | format.channels;
  return halves(format.sample_rate, lower);
}

void lock_input_format(const Record& record, const Format& format) {
  store(record, at_lock_input, format_word(format));
}

void lock_output_format(const Record& record, const Format& format) {
  store(record, at_lock_output, format_word(format));
}

void lock_success(const Record& record, const Lock& lock) {
  store(record, at_stream, halves(lock.sample_rate, lock.channels));
  store(record, at_pipeline, flagged(lock.algorithm_requested, lock.pipeline_mode, lock.algorithm_error));
  add<std::uint64_t>(record, at_lock_count, 1);
}

void applied(const Record& record, const Enhancement& enhancement) {
  store(record, at_applied, applied_word(enhancement));
}

void processing(const Record& record, float gain_db, std::uint32_t blocks) {
  store(record, at_processing, flagged(true, blocks, std::bit_cast<std::uint32_t>(gain_db)));
}

void mode(const Record& record, unsigned mode, unsigned kind) {
  if (mode > 15) return;
  const std::uint64_t wanted = bit(16 * kind + mode);
  std::uint64_t present = load<std::uint64_t>(record, at_mode_masks);
  if (!holds<std::uint64_t>(record, at_mode_masks)) return;
  const auto word = word_at<std::uint64_t>(record, at_mode_masks);
  while ((present & wanted) == 0 && !word.compare_exchange_weak(present, present | wanted)) {
  }
}

void processed_block(const Record& record) { add<std::uint64_t>(record, at_total_processed_blocks, 1); }

// Replaces `width` bits from bit `lowest` on.
void replace_bits(std::uint64_t& word, unsigned lowest, unsigned width, std::uint64_t value) {
  const std::uint64_t mask = bit(width) - 1;
  word = (word & ~(mask << lowest)) | (value << lowest);
}

std::uint64_t with_query(std::uint64_t word, unsigned index, std::uint32_t value, std::int32_t result) {
  const std::uint64_t count = (word >> (8 * index)) & 255;
  if (count < 255) replace_bits(word, 8 * index, 8, count + 1);
  replace_bits(word, 32 + 6 * index, 6, std::min<std::uint32_t>(value, 63));
  replace_bits(word, 56 + index, 1, result < 0 ? 0 : 1);
  return word;
}

void query(const Record& record, unsigned index, std::uint32_t value, std::int32_t result) {
  if (index > 3 || !holds<std::uint64_t>(record, at_query)) return;
  const auto word = word_at<std::uint64_t>(record, at_query);
  std::uint64_t present = load<std::uint64_t>(record, at_query);
  while (!word.compare_exchange_weak(present, with_query(present, index, value, result))) {
  }
}

void capture(const Record& record, std::uint16_t state, std::uint16_t seconds, std::uint32_t detail) {
  store(record, at_capture_report, flagged(true, detail, (std::uint32_t{seconds} << 16) | state));
}

}  // namespace

QueryState query_state(const Record& record, unsigned index) {
  const auto word = load<std::uint64_t>(record, at_query);
  return {static_cast<std::uint32_t>((word >> (32 + 6 * index)) & 63), ((word >> (56 + index)) & 1) != 0};
}

bool is_mode_reported(const Record& record, unsigned mode, unsigned kind) {
  return (load<std::uint64_t>(record, at_mode_masks) & bit(16 * kind + mode)) != 0;
}

const Reports own_reports = {.initialize_attempt = initialize_attempt,
                             .initialize_success = initialize_success,
                             .initialize_progress = initialize_progress,
                             .format_negotiation = format_negotiation,
                             .lock_attempt = lock_attempt,
                             .lock_input_format = lock_input_format,
                             .lock_output_format = lock_output_format,
                             .lock_progress = lock_progress,
                             .lock_success = lock_success,
                             .applied = applied,
                             .processing = processing,
                             .mode = mode,
                             .processed_block = processed_block,
                             .query = query,
                             .capture = capture};

const Reports& reports_for(const Options& options) {
  return options.through_shared_writers ? shared_reports : own_reports;
}

}  // namespace velmora::effect
