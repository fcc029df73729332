// The effect's reports from inside the audio engine: the words of the shared record that the effect writes.
// docs/record.md describes their bits. The service reads them. The report functions are the effect's side;
// the self-test and the test effect call them.
//
// All functions work on any memory of the record's size, make no system call, allocate nothing and take no
// lock. The effect may call them from its audio path, on several threads at once.
#pragma once

#include <cstdint>

#include "bridge/record.h"

namespace velmora {

// The decoded words. Each word is consistent in itself, but two words may be from different moments. The
// defaults apply when there is no record.
struct ControlDiagnostics {
  std::uint64_t initialize_attempt_count = 0;    // attempts to initialise the effect, both kinds
  std::uint32_t initialize_runtime_count = 0;    // for real use
  std::uint32_t initialize_discovery_count = 0;  // only for discovery
  std::uint64_t initialize_count = 0;            // initialisations that succeeded
  std::uint64_t lock_count = 0;                  // streams locked successfully for processing
  std::uint32_t initialize_data_size = 0;        // of the last attempt: bytes of data passed in
  std::uint32_t initialize_declared_size = 0;    // the size that this data states
  std::uint32_t initialize_structure = 0;        // code of the structure passed in
  std::uint32_t initialize_processing_mode = 0;
  bool initialize_for_discovery_only = false;
  std::uint32_t initialize_stage = 0;          // how far initialisation got, the effect's own code
  std::int32_t initialize_hresult = 0;         // its latest result
  std::uint64_t format_negotiation_count = 0;  // input and output
  std::uint32_t input_format_negotiation_count = 0;
  std::uint32_t output_format_negotiation_count = 0;
  std::uint32_t get_effects_list_count = 0;  // queries by the engine; each count stops at 255
  std::uint32_t get_controllable_effects_list_count = 0;
  std::uint32_t get_latency_count = 0;
  std::uint32_t get_input_channel_count_count = 0;
  std::uint32_t last_effect_count = 0;  // entries in the list, at most 63
  std::uint32_t last_controllable_effect_count = 0;
  bool last_latency_nonzero = false;
  std::uint32_t last_input_channel_count = 0;
  bool get_effects_list_succeeded = false;
  bool get_controllable_effects_list_succeeded = false;
  bool get_latency_succeeded = false;
  bool get_input_channel_count_succeeded = false;
  std::uint64_t lock_attempt_count = 0;  // attempts to lock a stream
  std::uint32_t lock_stage = 0;          // how far the last lock or negotiation got
  std::int32_t lock_hresult = 0;
  std::uint32_t lock_input_sample_rate = 0;  // hertz; formats offered at the last lock or negotiation
  std::uint32_t lock_input_channels = 0;
  std::uint32_t lock_input_valid_bits = 0;
  std::uint32_t lock_input_container_bytes = 0;
  std::uint32_t lock_input_format_type = 0;
  std::uint32_t lock_output_sample_rate = 0;
  std::uint32_t lock_output_channels = 0;
  std::uint32_t lock_output_valid_bits = 0;
  std::uint32_t lock_output_container_bytes = 0;
  std::uint32_t lock_output_format_type = 0;
  std::uint32_t sample_rate = 0;  // hertz; of the last stream locked successfully
  std::uint32_t channels = 0;
  bool algorithm_requested = false;       // the algorithm was requested for that stream
  std::uint32_t pipeline_mode = 0;        // the effect's own code
  std::int32_t last_algorithm_error = 0;  // 0: none
  bool applied_valid = false;             // the effect has reported what it applied
  bool applied_bypass = true;
  bool applied_bypass_all = false;
  float applied_strength = 0;
  bool processing_gain_valid = false;        // a gain was measured
  float processing_gain_db = 0;              // decibels
  std::uint32_t processing_block_count = 0;  // blocks that the gain was measured over
  std::uint32_t initialized_mode_mask = 0;   // one bit per processing mode 0..15
  std::uint32_t locked_mode_mask = 0;
  std::uint32_t processed_mode_mask = 0;
  std::uint64_t total_processed_blocks = 0;
  bool capture_reported = false;
  std::uint32_t capture_state = 0;  // the effect's own code
  std::uint32_t capture_seconds = 0;
  std::int32_t capture_detail_code = 0;  // bit 31 is set whenever capture_reported is
};

// Fills `out`. Reads each word once, atomically, without retries.
void read_diagnostics(ControlBridgeRecord& record, ControlDiagnostics& out);

// The result of a step that has begun but not ended. If it stays, the stage shows where the effect stopped.
// The value is E_PENDING (winerror.h).
inline constexpr std::uint32_t result_pending = 0x8000000A;
// The stage of an input format negotiation. Every other stage counts as an output negotiation.
inline constexpr std::uint32_t stage_input_negotiation = 9;

struct InitializeAttempt {
  std::uint32_t data_size;      // bytes passed to the effect
  std::uint32_t declared_size;  // the size that they state
  std::uint32_t structure;      // 31 bits
  std::uint32_t processing_mode;
  bool discovery;  // only for discovery, not for real use
};

// The format of one side of a stream.
struct StreamFormat {
  std::uint32_t sample_rate;  // hertz
  std::uint8_t channels;
  std::uint8_t valid_bits;       // per sample
  std::uint8_t container_bytes;  // per sample
  std::uint32_t format_type;     // below 256; larger values corrupt the word
};

struct LockedStream {
  std::uint32_t sample_rate;  // hertz
  std::uint32_t channels;
  bool algorithm_requested;
  std::uint32_t pipeline_mode;  // 31 bits
  std::uint32_t algorithm_error;
};

enum class ModeKind : std::uint32_t { initialized = 0, locked = 1, processed = 2 };

// Queries from the engine to the effect.
enum class EngineQuery : std::uint32_t {
  effects_list = 0,
  controllable_effects_list = 1,
  latency = 2,
  input_channel_count = 3,
};

// Packing of single words. Pure.
[[nodiscard]] std::uint64_t pack_format(const StreamFormat& format);
// Returns `old` after one more query `index`: its count (at most 255), its value (at most 63) and its
// success. An index above 3 changes nothing.
[[nodiscard]] std::uint64_t update_query_word(std::uint64_t old, std::uint32_t index, std::uint32_t value,
                                              bool success);

// Reports by the effect. In words stored as a whole the last writer wins. Concurrent reports lose no count.
//
// An initialisation attempt is at stage 1 with result_pending until its progress is reported. A negotiation
// or a lock attempt first clears both formats.
void report_initialize_attempt(ControlBridgeRecord& record, const InitializeAttempt& attempt);
void report_initialize_success(ControlBridgeRecord& record);
void report_initialize_progress(ControlBridgeRecord& record, std::uint32_t stage, std::uint32_t result);
void report_format_negotiation(ControlBridgeRecord& record, std::uint32_t stage);
void report_lock_attempt(ControlBridgeRecord& record);
void report_lock_input_format(ControlBridgeRecord& record, const StreamFormat& format);
void report_lock_output_format(ControlBridgeRecord& record, const StreamFormat& format);
void report_lock_progress(ControlBridgeRecord& record, std::uint32_t stage, std::uint32_t result);
void report_lock_success(ControlBridgeRecord& record, const LockedStream& stream);
void report_applied(ControlBridgeRecord& record, bool bypass, bool bypass_all, float strength);
void report_processing(ControlBridgeRecord& record, float gain_db, std::uint32_t block_count);
// A mode of 16 or above is ignored.
void report_mode(ControlBridgeRecord& record, std::uint32_t mode, ModeKind kind);
void count_processed_block(ControlBridgeRecord& record);
// `index` is an EngineQuery. A result that is not negative is a success.
void report_query(ControlBridgeRecord& record, std::uint32_t index, std::uint32_t value, std::int32_t result);
// Always sets bit 31 of `detail`.
void report_capture(ControlBridgeRecord& record, std::uint16_t state, std::uint16_t seconds,
                    std::uint32_t detail);

}  // namespace velmora
