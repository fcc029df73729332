// The 576-byte record that the service shares with the effect: its layout, its packed words, and the
// service's operations on it. docs/record.md describes every byte. All functions work on any memory of that
// size and make no system call.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace velmora {

static_assert(std::endian::native == std::endian::little, "the record is little-endian");

inline constexpr std::uint32_t record_magic = 0x31434D56;  // the bytes "VMC1" in memory order
inline constexpr std::uint32_t record_layout_version = 8;
inline constexpr std::uint32_t record_size_bytes = 576;
inline constexpr std::size_t eq_band_count = 15;

// One equalizer band, stored in 16 bytes of the record.
struct EqBand {
  std::int32_t type;  // 0..8
  float freq_hz;
  float gain_db;
  float q;
  bool operator==(const EqBand&) const = default;
};
static_assert(sizeof(EqBand) == 16);

// A band as the two words in which it is shared.
using EqBandWords = std::array<std::uint64_t, 2>;
static_assert(sizeof(EqBandWords) == sizeof(EqBand));

// The shared record. Access its words only through the functions below, never by plain loads or stores. The
// exceptions are `version` and `size`, which are constant once `magic` is set.
struct ControlBridgeRecord {
  std::uint32_t magic;
  std::uint32_t version;
  std::uint32_t size;
  std::uint32_t reserved_00c;
  std::uint64_t footstep_word;
  std::uint64_t initialize_count;
  std::uint64_t lock_count;
  std::uint64_t stream_word;
  std::uint64_t pipeline_word;
  std::uint64_t query_word;
  std::uint64_t initialize_attempts_word;
  std::uint64_t initialize_sizes_word;
  std::uint64_t initialize_mode_word;
  std::uint64_t initialize_progress_word;
  std::uint32_t lock_attempt_word;
  std::uint32_t format_negotiation_word;
  std::uint64_t lock_progress_word;
  std::uint64_t lock_input_word;
  std::uint64_t lock_output_word;
  std::uint64_t applied_word;
  std::uint64_t processing_word;
  std::uint64_t mode_masks_word;
  std::uint64_t total_processed_blocks;
  std::uint64_t reserved_0a0;
  std::uint64_t capture_request;
  std::uint64_t capture_report;
  std::uint64_t algorithm_word;
  std::uint64_t eq_sequence;
  std::uint64_t eq_word;
  std::uint64_t eq_revision;
  std::array<EqBandWords, eq_band_count> eq_bands;
  std::array<std::uint64_t, 15> reserved_1c8;
};
static_assert(std::is_standard_layout_v<ControlBridgeRecord> &&
              std::is_trivially_copyable_v<ControlBridgeRecord>);
static_assert(sizeof(ControlBridgeRecord) == record_size_bytes && alignof(ControlBridgeRecord) == 8);
static_assert(offsetof(ControlBridgeRecord, magic) == 0x000);
static_assert(offsetof(ControlBridgeRecord, version) == 0x004);
static_assert(offsetof(ControlBridgeRecord, size) == 0x008);
static_assert(offsetof(ControlBridgeRecord, reserved_00c) == 0x00C);
static_assert(offsetof(ControlBridgeRecord, footstep_word) == 0x010);
static_assert(offsetof(ControlBridgeRecord, initialize_count) == 0x018);
static_assert(offsetof(ControlBridgeRecord, lock_count) == 0x020);
static_assert(offsetof(ControlBridgeRecord, stream_word) == 0x028);
static_assert(offsetof(ControlBridgeRecord, pipeline_word) == 0x030);
static_assert(offsetof(ControlBridgeRecord, query_word) == 0x038);
static_assert(offsetof(ControlBridgeRecord, initialize_attempts_word) == 0x040);
static_assert(offsetof(ControlBridgeRecord, initialize_sizes_word) == 0x048);
static_assert(offsetof(ControlBridgeRecord, initialize_mode_word) == 0x050);
static_assert(offsetof(ControlBridgeRecord, initialize_progress_word) == 0x058);
static_assert(offsetof(ControlBridgeRecord, lock_attempt_word) == 0x060);
static_assert(offsetof(ControlBridgeRecord, format_negotiation_word) == 0x064);
static_assert(offsetof(ControlBridgeRecord, lock_progress_word) == 0x068);
static_assert(offsetof(ControlBridgeRecord, lock_input_word) == 0x070);
static_assert(offsetof(ControlBridgeRecord, lock_output_word) == 0x078);
static_assert(offsetof(ControlBridgeRecord, applied_word) == 0x080);
static_assert(offsetof(ControlBridgeRecord, processing_word) == 0x088);
static_assert(offsetof(ControlBridgeRecord, mode_masks_word) == 0x090);
static_assert(offsetof(ControlBridgeRecord, total_processed_blocks) == 0x098);
static_assert(offsetof(ControlBridgeRecord, reserved_0a0) == 0x0A0);
static_assert(offsetof(ControlBridgeRecord, capture_request) == 0x0A8);
static_assert(offsetof(ControlBridgeRecord, capture_report) == 0x0B0);
static_assert(offsetof(ControlBridgeRecord, algorithm_word) == 0x0B8);
static_assert(offsetof(ControlBridgeRecord, eq_sequence) == 0x0C0);
static_assert(offsetof(ControlBridgeRecord, eq_word) == 0x0C8);
static_assert(offsetof(ControlBridgeRecord, eq_revision) == 0x0D0);
static_assert(offsetof(ControlBridgeRecord, eq_bands) == 0x0D8);
static_assert(offsetof(ControlBridgeRecord, reserved_1c8) == 0x1C8);

// The user's settings of the enhancement.
struct FootstepParameters {
  bool bypass;
  bool bypass_all;
  float enhance_strength;  // 0..1
  std::uint64_t raw;       // the word as read
};

// The settings of the algorithm. The record stores decibels in tenths and `mask_time_alpha` in 1/255.
struct AlgorithmParameters {
  float output_trim_db = 0;                // -120..120 in the record
  float mask_time_alpha = 0;               // 0..1 in the record
  std::int32_t mask_frequency_smooth = 0;  // 0..15 in the record
  bool limiter_enabled = true;
  float limiter_ceiling_db = -1;  // -120..120 in the record
  std::int32_t stereo_link = 1;   // 0..3 in the record
  std::uint64_t raw = 0;          // the word as read
};

// The settings of the equalizer. These defaults are shown when the record cannot be read. They differ from a
// new record, which spreads its bands over the frequency axis.
struct EqSettings {
  EqSettings() { bands.fill({0, 1000.0f, 0.0f, 0.707f}); }
  bool bypass = true;
  float fade_ms = 20;  // milliseconds, 0..200; the record stores tenths
  std::array<EqBand, eq_band_count> bands;
  std::uint64_t revision = 0;
};

// A capture command as the effect reads it.
struct CaptureRequest {
  std::uint64_t sequence;  // 32 bits, wrapping; changes with each command
  std::uint32_t action;
  std::uint32_t seconds;
};

// The result of a publication. The numbers are part of the contract with the effect.
enum class BridgeResult : unsigned { done = 0, value_refused = 1, not_open = 6 };

// Packing and unpacking of single words. Pure.
[[nodiscard]] std::uint16_t tenths_db(float decibels);
[[nodiscard]] std::uint64_t pack_footstep(bool bypass, bool bypass_all, float enhance_strength);
[[nodiscard]] FootstepParameters unpack_footstep(std::uint64_t word);
[[nodiscard]] std::uint64_t pack_algorithm(const AlgorithmParameters& parameters);
// Returns the defaults, except for `raw`, if the valid bit (bit 0) is clear.
[[nodiscard]] AlgorithmParameters unpack_algorithm(std::uint64_t word);
[[nodiscard]] std::uint64_t pack_eq_word(bool bypass, float fade_ms);

// The centre of band `index` (0..14) in a new record, in hertz: 15 evenly spaced points on a logarithmic axis
// from 20 to 20000.
[[nodiscard]] float band_frequency(std::size_t index);

// Writes the initial contents. Call it once, in the process that created the mapping. It clears `magic` first
// and sets it last, so that no reader accepts a half-written record.
void initialise_record(ControlBridgeRecord& record);

// Whether a record is usable.
enum class RecordState {
  ready,         // magic, version and size match
  incompatible,  // the magic matches, but not version and size
  unfinished,    // no magic: the creator is still writing or has died, or it is no record at all
};
[[nodiscard]] RecordState inspect_record(ControlBridgeRecord& record);

// Publications by the service. Each changes one word in one atomic step, or the equalizer under its sequence
// word. Only one thread of one process may publish.
//
// value_refused, with nothing stored: the strength is not finite or not within 0..1.
[[nodiscard]] BridgeResult publish_footstep(ControlBridgeRecord& record, bool bypass, bool bypass_all,
                                            float enhance_strength);
void publish_algorithm(ControlBridgeRecord& record, const AlgorithmParameters& parameters);
// `settings.revision` is ignored: the record counts revisions itself.
void publish_eq(ControlBridgeRecord& record, const EqSettings& settings);
void publish_capture_request(ControlBridgeRecord& record, std::uint16_t action, std::uint16_t seconds);

// Always fills `out`. Returns true if the strength is finite and within 0..1.
[[nodiscard]] bool read_footstep(ControlBridgeRecord& record, FootstepParameters& out);
// Always fills `out`. Returns true if the word is valid.
[[nodiscard]] bool read_algorithm(ControlBridgeRecord& record, AlgorithmParameters& out);
// Makes up to four attempts at a consistent read. Returns false, with `out` untouched, if a writer disturbed
// all of these attempts.
[[nodiscard]] bool read_eq(ControlBridgeRecord& record, EqSettings& out);

// Read by the effect.
void read_capture_request(ControlBridgeRecord& record, CaptureRequest& out);

}  // namespace velmora
