#include "bridge/diagnostics.h"

#include <algorithm>
#include <bit>

#include "bridge/words.h"

namespace velmora {
namespace {

constexpr std::uint64_t top_bit = std::uint64_t{1} << 63;
constexpr std::uint32_t flag_in_upper_half = 0x80000000;
constexpr std::uint32_t first_stage = 1;
constexpr std::uint32_t mode_count = 16;
constexpr std::uint32_t query_count = 4;
constexpr std::uint64_t max_query_count = 255;
constexpr std::uint64_t max_query_value = 63;
constexpr unsigned query_count_bits = 8;
constexpr unsigned query_value_bits = 6;
constexpr unsigned query_values_shift = 32;
constexpr unsigned query_successes_shift = 56;

std::uint32_t lower_half(std::uint64_t word) { return static_cast<std::uint32_t>(word); }
std::uint32_t upper_half(std::uint64_t word) { return static_cast<std::uint32_t>(word >> 32); }
// For words whose highest bit is a flag.
std::uint32_t upper_31_bits(std::uint64_t word) { return upper_half(word) & ~flag_in_upper_half; }
bool has_top_bit(std::uint64_t word) { return (word & top_bit) != 0; }
std::int32_t signed_code(std::uint32_t code) { return static_cast<std::int32_t>(code); }
float float_of(std::uint32_t bits) { return std::bit_cast<float>(bits); }

std::uint64_t join_halves(std::uint32_t upper, std::uint32_t lower) {
  return (std::uint64_t{upper} << 32) | lower;
}

unsigned query_count_shift(std::uint32_t index) { return index * query_count_bits; }
unsigned query_value_shift(std::uint32_t index) { return query_values_shift + index * query_value_bits; }
unsigned query_success_shift(std::uint32_t index) { return query_successes_shift + index; }

struct QueryState {
  std::uint32_t count;
  std::uint32_t value;
  bool succeeded;
};

QueryState query_of(std::uint64_t word, EngineQuery query) {
  const auto index = static_cast<std::uint32_t>(query);
  return {static_cast<std::uint32_t>((word >> query_count_shift(index)) & max_query_count),
          static_cast<std::uint32_t>((word >> query_value_shift(index)) & max_query_value),
          ((word >> query_success_shift(index)) & 1) != 0};
}

// Reverses pack_format. The type comes from its own byte.
StreamFormat unpack_format(std::uint64_t word) {
  return {upper_half(word), static_cast<std::uint8_t>(word), static_cast<std::uint8_t>(word >> 8),
          static_cast<std::uint8_t>(word >> 16), static_cast<std::uint8_t>(word >> 24)};
}

void read_initialisation(ControlBridgeRecord& record, ControlDiagnostics& out) {
  const std::uint64_t attempts = load_word(record.initialize_attempts_word);
  out.initialize_runtime_count = lower_half(attempts);
  out.initialize_discovery_count = upper_half(attempts);
  out.initialize_attempt_count = std::uint64_t{lower_half(attempts)} + upper_half(attempts);
  out.initialize_count = load_word(record.initialize_count);
  const std::uint64_t sizes = load_word(record.initialize_sizes_word);
  out.initialize_declared_size = lower_half(sizes);
  out.initialize_data_size = upper_half(sizes);
  const std::uint64_t mode = load_word(record.initialize_mode_word);
  out.initialize_processing_mode = lower_half(mode);
  out.initialize_structure = upper_31_bits(mode);
  out.initialize_for_discovery_only = has_top_bit(mode);
  const std::uint64_t progress = load_word(record.initialize_progress_word);
  out.initialize_hresult = signed_code(lower_half(progress));
  out.initialize_stage = upper_half(progress);
}

void read_queries(ControlBridgeRecord& record, ControlDiagnostics& out) {
  const std::uint64_t word = load_word(record.query_word);
  const QueryState effects = query_of(word, EngineQuery::effects_list);
  out.get_effects_list_count = effects.count;
  out.last_effect_count = effects.value;
  out.get_effects_list_succeeded = effects.succeeded;
  const QueryState controllable = query_of(word, EngineQuery::controllable_effects_list);
  out.get_controllable_effects_list_count = controllable.count;
  out.last_controllable_effect_count = controllable.value;
  out.get_controllable_effects_list_succeeded = controllable.succeeded;
  const QueryState latency = query_of(word, EngineQuery::latency);
  out.get_latency_count = latency.count;
  out.last_latency_nonzero = latency.value != 0;
  out.get_latency_succeeded = latency.succeeded;
  const QueryState channels = query_of(word, EngineQuery::input_channel_count);
  out.get_input_channel_count_count = channels.count;
  out.last_input_channel_count = channels.value;
  out.get_input_channel_count_succeeded = channels.succeeded;
}

void read_lock(ControlBridgeRecord& record, ControlDiagnostics& out) {
  const std::uint32_t negotiations = load_word(record.format_negotiation_word);
  out.input_format_negotiation_count = negotiations & 0xFFFF;
  out.output_format_negotiation_count = negotiations >> 16;
  out.format_negotiation_count =
      std::uint64_t{out.input_format_negotiation_count} + out.output_format_negotiation_count;
  out.lock_count = load_word(record.lock_count);
  out.lock_attempt_count = load_word(record.lock_attempt_word);
  const std::uint64_t progress = load_word(record.lock_progress_word);
  out.lock_hresult = signed_code(lower_half(progress));
  out.lock_stage = upper_half(progress);
  const StreamFormat input = unpack_format(load_word(record.lock_input_word));
  out.lock_input_sample_rate = input.sample_rate;
  out.lock_input_channels = input.channels;
  out.lock_input_valid_bits = input.valid_bits;
  out.lock_input_container_bytes = input.container_bytes;
  out.lock_input_format_type = input.format_type;
  const StreamFormat output = unpack_format(load_word(record.lock_output_word));
  out.lock_output_sample_rate = output.sample_rate;
  out.lock_output_channels = output.channels;
  out.lock_output_valid_bits = output.valid_bits;
  out.lock_output_container_bytes = output.container_bytes;
  out.lock_output_format_type = output.format_type;
}

void read_stream(ControlBridgeRecord& record, ControlDiagnostics& out) {
  const std::uint64_t stream = load_word(record.stream_word);
  out.channels = lower_half(stream);
  out.sample_rate = upper_half(stream);
  const std::uint64_t pipeline = load_word(record.pipeline_word);
  out.last_algorithm_error = signed_code(lower_half(pipeline));
  out.pipeline_mode = upper_31_bits(pipeline);
  out.algorithm_requested = has_top_bit(pipeline);
}

void read_processing(ControlBridgeRecord& record, ControlDiagnostics& out) {
  const std::uint64_t applied = load_word(record.applied_word);
  const FootstepParameters footstep = unpack_footstep(applied);
  out.applied_valid = has_top_bit(applied);
  out.applied_bypass = footstep.bypass;
  out.applied_bypass_all = footstep.bypass_all;
  out.applied_strength = footstep.enhance_strength;
  const std::uint64_t processing = load_word(record.processing_word);
  out.processing_gain_db = float_of(lower_half(processing));
  out.processing_block_count = upper_31_bits(processing);
  out.processing_gain_valid = has_top_bit(processing);
  const std::uint64_t masks = load_word(record.mode_masks_word);
  out.initialized_mode_mask = masks & 0xFFFF;
  out.locked_mode_mask = (masks >> 16) & 0xFFFF;
  out.processed_mode_mask = (masks >> 32) & 0xFFFF;
  out.total_processed_blocks = load_word(record.total_processed_blocks);
}

void read_capture(ControlBridgeRecord& record, ControlDiagnostics& out) {
  const std::uint64_t report = load_word(record.capture_report);
  out.capture_state = report & 0xFFFF;
  out.capture_seconds = (report >> 16) & 0xFFFF;
  out.capture_detail_code = signed_code(upper_half(report));
  out.capture_reported = has_top_bit(report);
}

void clear_formats(ControlBridgeRecord& record) {
  store_word(record.lock_input_word, std::uint64_t{0});
  store_word(record.lock_output_word, std::uint64_t{0});
}

}  // namespace

void read_diagnostics(ControlBridgeRecord& record, ControlDiagnostics& out) {
  read_initialisation(record, out);
  read_queries(record, out);
  read_lock(record, out);
  read_stream(record, out);
  read_processing(record, out);
  read_capture(record, out);
}

std::uint64_t pack_format(const StreamFormat& format) {
  return (std::uint64_t{format.sample_rate} << 32) | (std::uint64_t{format.format_type} << 24) |
         (std::uint64_t{format.container_bytes} << 16) | (std::uint64_t{format.valid_bits} << 8) |
         format.channels;
}

std::uint64_t update_query_word(std::uint64_t old, std::uint32_t index, std::uint32_t value, bool success) {
  if (index >= query_count) return old;
  const std::uint64_t count =
      std::min(((old >> query_count_shift(index)) & max_query_count) + 1, max_query_count);
  const std::uint64_t kept = std::min<std::uint64_t>(value, max_query_value);
  const std::uint64_t replaced = (max_query_count << query_count_shift(index)) |
                                 (max_query_value << query_value_shift(index)) |
                                 (std::uint64_t{1} << query_success_shift(index));
  return (old & ~replaced) | (count << query_count_shift(index)) | (kept << query_value_shift(index)) |
         (std::uint64_t{success} << query_success_shift(index));
}

void report_initialize_attempt(ControlBridgeRecord& record, const InitializeAttempt& attempt) {
  store_word(record.initialize_sizes_word, join_halves(attempt.data_size, attempt.declared_size));
  store_word(record.initialize_mode_word,
             join_halves(attempt.structure & ~flag_in_upper_half, attempt.processing_mode) |
                 (attempt.discovery ? top_bit : 0));
  report_initialize_progress(record, first_stage, result_pending);
  add_to_word(record.initialize_attempts_word, attempt.discovery ? std::uint64_t{1} << 32 : std::uint64_t{1});
}

void report_initialize_success(ControlBridgeRecord& record) {
  add_to_word(record.initialize_count, std::uint64_t{1});
}

void report_initialize_progress(ControlBridgeRecord& record, std::uint32_t stage, std::uint32_t result) {
  store_word(record.initialize_progress_word, join_halves(stage, result));
}

void report_format_negotiation(ControlBridgeRecord& record, std::uint32_t stage) {
  clear_formats(record);
  report_lock_progress(record, stage, result_pending);
  // The 65536th input negotiation overflows into the output count.
  const std::uint32_t one = stage == stage_input_negotiation ? 1 : 0x10000;
  add_to_word(record.format_negotiation_word, one);
}

void report_lock_attempt(ControlBridgeRecord& record) {
  clear_formats(record);
  report_lock_progress(record, first_stage, result_pending);
  add_to_word(record.lock_attempt_word, std::uint32_t{1});
}

void report_lock_input_format(ControlBridgeRecord& record, const StreamFormat& format) {
  store_word(record.lock_input_word, pack_format(format));
}

void report_lock_output_format(ControlBridgeRecord& record, const StreamFormat& format) {
  store_word(record.lock_output_word, pack_format(format));
}

void report_lock_progress(ControlBridgeRecord& record, std::uint32_t stage, std::uint32_t result) {
  store_word(record.lock_progress_word, join_halves(stage, result));
}

void report_lock_success(ControlBridgeRecord& record, const LockedStream& stream) {
  store_word(record.stream_word, join_halves(stream.sample_rate, stream.channels));
  store_word(record.pipeline_word,
             join_halves(stream.pipeline_mode & ~flag_in_upper_half, stream.algorithm_error) |
                 (stream.algorithm_requested ? top_bit : 0));
  add_to_word(record.lock_count, std::uint64_t{1});
}

void report_applied(ControlBridgeRecord& record, bool bypass, bool bypass_all, float strength) {
  store_word(record.applied_word, pack_footstep(bypass, bypass_all, strength) | top_bit);
}

void report_processing(ControlBridgeRecord& record, float gain_db, std::uint32_t block_count) {
  store_word(record.processing_word,
             join_halves(block_count, std::bit_cast<std::uint32_t>(gain_db)) | top_bit);
}

void report_mode(ControlBridgeRecord& record, std::uint32_t mode, ModeKind kind) {
  if (mode >= mode_count) return;
  const std::uint64_t bit = std::uint64_t{1} << (mode + static_cast<std::uint32_t>(kind) * mode_count);
  std::uint64_t present = load_word(record.mode_masks_word);
  while ((present & bit) == 0 && !exchange_word(record.mode_masks_word, present, present | bit)) {
  }
}

void count_processed_block(ControlBridgeRecord& record) {
  add_to_word(record.total_processed_blocks, std::uint64_t{1});
}

void report_query(ControlBridgeRecord& record, std::uint32_t index, std::uint32_t value,
                  std::int32_t result) {
  std::uint64_t present = load_word(record.query_word);
  while (!exchange_word(record.query_word, present, update_query_word(present, index, value, result >= 0))) {
  }
}

void report_capture(ControlBridgeRecord& record, std::uint16_t state, std::uint16_t seconds,
                    std::uint32_t detail) {
  store_word(record.capture_report,
             join_halves(detail | flag_in_upper_half, (std::uint32_t{seconds} << 16) | state));
}

}  // namespace velmora
