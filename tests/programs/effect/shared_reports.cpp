// The only file of the test effect that knows the service's own definition of the record.
#include "bridge/diagnostics.h"

#include "reports.h"

namespace velmora::effect {
namespace {

ControlBridgeRecord& whole(const Record& record) {
  return *reinterpret_cast<ControlBridgeRecord*>(record.bytes);
}

StreamFormat stream_format(const Format& format) {
  return {format.sample_rate, format.channels, format.valid_bits, format.container_bytes, format.type};
}

void initialize_attempt(const Record& record, const Initialization& attempt) {
  report_initialize_attempt(whole(record), {attempt.data_size, attempt.declared_size, attempt.structure,
                                            attempt.mode, attempt.discovery});
}

void initialize_success(const Record& record) { report_initialize_success(whole(record)); }

void initialize_progress(const Record& record, std::uint32_t stage, std::uint32_t result) {
  report_initialize_progress(whole(record), stage, result);
}

void format_negotiation(const Record& record, std::uint32_t stage) {
  report_format_negotiation(whole(record), stage);
}

void lock_attempt(const Record& record) { report_lock_attempt(whole(record)); }

void lock_input_format(const Record& record, const Format& format) {
  report_lock_input_format(whole(record), stream_format(format));
}

void lock_output_format(const Record& record, const Format& format) {
  report_lock_output_format(whole(record), stream_format(format));
}

void lock_progress(const Record& record, std::uint32_t stage, std::uint32_t result) {
  report_lock_progress(whole(record), stage, result);
}

void lock_success(const Record& record, const Lock& lock) {
  report_lock_success(whole(record), {lock.sample_rate, lock.channels, lock.algorithm_requested,
                                      lock.pipeline_mode, lock.algorithm_error});
}

void applied(const Record& record, const Enhancement& enhancement) {
  report_applied(whole(record), enhancement.bypass, enhancement.bypass_all, enhancement.strength);
}

void processing(const Record& record, float gain_db, std::uint32_t blocks) {
  report_processing(whole(record), gain_db, blocks);
}

void mode(const Record& record, unsigned mode, unsigned kind) {
  report_mode(whole(record), mode, static_cast<ModeKind>(kind));
}

void processed_block(const Record& record) { count_processed_block(whole(record)); }

void query(const Record& record, unsigned index, std::uint32_t value, std::int32_t result) {
  report_query(whole(record), index, value, result);
}

void capture(const Record& record, std::uint16_t state, std::uint16_t seconds, std::uint32_t detail) {
  report_capture(whole(record), state, seconds, detail);
}

}  // namespace

const Reports shared_reports = {
    .initialize_attempt = initialize_attempt,
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
    .capture = capture,
};

}  // namespace velmora::effect
