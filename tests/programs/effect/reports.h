// What the effect reports of its life. There are two sets of writers, so that two definitions of the words
// meet on one record: the test effect's own, written only from docs/record.md, and those of the service's
// source tree. Nothing in a report waits, and any number of threads and processes may report at once.
#pragma once

#include <cstdint>

#include "options.h"
#include "record.h"

namespace velmora::effect {

// The result of a step that has been entered and not finished (E_PENDING).
inline constexpr std::uint32_t result_pending = 0x8000000A;
// The stage that says that a negotiation is about the input format.
inline constexpr std::uint32_t stage_negotiate_input = 9;

struct Initialization {
  std::uint32_t data_size;      // bytes
  std::uint32_t declared_size;  // bytes
  std::uint32_t structure;      // 31 bits
  std::uint32_t mode;
  bool discovery;
};

struct Format {
  std::uint32_t sample_rate;  // hertz
  std::uint8_t channels;
  std::uint8_t valid_bits;
  std::uint8_t container_bytes;
  std::uint8_t type;
};

struct Lock {
  std::uint32_t sample_rate;  // hertz
  std::uint32_t channels;
  bool algorithm_requested;
  std::uint32_t pipeline_mode;  // 31 bits
  std::uint32_t algorithm_error;
};

// Kinds of modes, and the four queries, by their numbers in the words.
inline constexpr unsigned mode_initialized = 0;
inline constexpr unsigned mode_locked = 1;
inline constexpr unsigned mode_processed = 2;
inline constexpr unsigned query_effects = 0;
inline constexpr unsigned query_controllable_effects = 1;
inline constexpr unsigned query_latency = 2;
inline constexpr unsigned query_input_channels = 3;

struct Reports {
  void (*initialize_attempt)(const Record&, const Initialization&);
  void (*initialize_success)(const Record&);
  void (*initialize_progress)(const Record&, std::uint32_t stage, std::uint32_t result);
  void (*format_negotiation)(const Record&, std::uint32_t stage);
  void (*lock_attempt)(const Record&);
  void (*lock_input_format)(const Record&, const Format&);
  void (*lock_output_format)(const Record&, const Format&);
  void (*lock_progress)(const Record&, std::uint32_t stage, std::uint32_t result);
  void (*lock_success)(const Record&, const Lock&);
  void (*applied)(const Record&, const Enhancement&);
  void (*processing)(const Record&, float gain_db, std::uint32_t blocks);
  void (*mode)(const Record&, unsigned mode, unsigned kind);
  void (*processed_block)(const Record&);
  void (*query)(const Record&, unsigned index, std::uint32_t value, std::int32_t result);
  // The service shows `detail` with its highest bit set.
  void (*capture)(const Record&, std::uint16_t state, std::uint16_t seconds, std::uint32_t detail);
};

// Words that mix what several writers report, as a writer looks whether its own report is still there.
struct QueryState {
  std::uint32_t value;
  bool succeeded;
  bool operator==(const QueryState&) const = default;
};
[[nodiscard]] QueryState query_state(const Record& record, unsigned index);
[[nodiscard]] bool is_mode_reported(const Record& record, unsigned mode, unsigned kind);

extern const Reports own_reports;
// For records of 576 bytes only.
extern const Reports shared_reports;

// The set that the options ask for.
[[nodiscard]] const Reports& reports_for(const Options& options);

}  // namespace velmora::effect
