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

}  // namespace

const Reports shared_reports = {
    .initialize_attempt =
        [](const Record& record, const Initialization& attempt) {
          report_initialize_attempt(whole(record), {attempt.data_size, attempt.declared_size,
                                                    attempt.structure, attempt.mode, attempt.discovery});
        },
    .initialize_success = [](const Record& record) { report_initialize_success(whole(record)); },
    .initialize_progress =
        [](const Record& record, std::uint32_t stage, std::uint32_t result) {
          report_initialize_progress(whole(record), stage, result);
        },
    .format_negotiation = [](const Record& record,
                             std::uint32_t stage) { report_format_negotiation(whole(record), stage); },
    .lock_attempt = [](const Record& record) { report_lock_attempt(whole(record)); },
    .lock_input_format =
        [](const Record& record, const Format& format) {
          report_lock_input_format(whole(record), stream_format(format));
        },
    .lock_output_format =
        [](const Record& record, const Format& format) {
          report_lock_output_format(whole(record), stream_format(format));
        },
    .lock_progress = [](const Record& record, std::uint32_t stage,
                        std::uint32_t result) { report_lock_progress(whole(record), stage, result); },
    .lock_success =
        [](const Record& record, const Lock& lock) {
          report_lock_success(whole(record), {lock.sample_rate, lock.channels, lock.algorithm_requested,
                                              lock.pipeline_mode, lock.algorithm_error});
        },
    .applied =
        [](const Record& record, const Enhancement& enhancement) {
          report_applied(whole(record), enhancement.bypass, enhancement.bypass_all, enhancement.strength);
        },
    .processing = [](const Record& record, float gain_db,
                     std::uint32_t blocks) { report_processing(whole(record), gain_db, blocks); },
    .mode = [](const Record& record, unsigned mode,
               unsigned kind) { report_mode(whole(record), mode, static_cast<ModeKind>(kind)); },
    .processed_block = [](const Record& record) { count_processed_block(whole(record)); },
    .query = [](const Record& record, unsigned index, std::uint32_t value,
                std::int32_t result) { report_query(whole(record), index, value, result); },
    .capture = [](const Record& record, std::uint16_t state, std::uint16_t seconds,
                  std::uint32_t detail) { report_capture(whole(record), state, seconds, detail); },
};

}  // namespace velmora::effect
