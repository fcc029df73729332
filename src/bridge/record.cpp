#include "bridge/record.h"

#include <algorithm>
#include <cmath>

#include "bridge/words.h"

namespace velmora {
namespace {

constexpr float tenths_per_unit = 10.0f;
constexpr float alpha_steps = 255.0f;
constexpr float fade_limit_ms = 200.0f;
constexpr int eq_read_attempts = 4;

constexpr std::uint64_t footstep_bypass_bit = std::uint64_t{1} << 32;
constexpr std::uint64_t footstep_bypass_all_bit = std::uint64_t{1} << 33;
constexpr std::uint64_t algorithm_valid_bit = 1;
constexpr std::uint64_t algorithm_limiter_bit = std::uint64_t{1} << 17;
constexpr unsigned stereo_link_shift = 18;
constexpr unsigned frequency_smooth_shift = 20;
constexpr unsigned time_alpha_shift = 24;
constexpr unsigned limiter_ceiling_shift = 32;
constexpr unsigned output_trim_shift = 48;
constexpr unsigned fade_shift = 32;

bool strength_allowed(float strength) { return strength >= 0 && strength <= 1; }  // so it is finite

// Returns `value` clamped to the limits, times `scale`, rounded half away from zero. NaN counts as 0.
long scaled(float value, float low, float high, float scale) {
  if (std::isnan(value)) return 0;
  // The product is a float, so adding one half to it in double is exact. This avoids the C library's
  // rounding: mingw-w64's rounds 0.49999997 to 1.
  const double product = std::clamp(value, low, high) * scale;
  return static_cast<long>(product + (product < 0 ? -0.5 : 0.5));
}

float decibels_of(std::uint64_t word, unsigned shift) {
  return static_cast<float>(static_cast<std::int16_t>(static_cast<std::uint16_t>(word >> shift))) /
         tenths_per_unit;
}

void store_bands(ControlBridgeRecord& record, const std::array<EqBand, eq_band_count>& bands) {
  for (std::size_t index = 0; index < eq_band_count; ++index) {
    const auto words = std::bit_cast<EqBandWords>(bands[index]);
    store_guarded(record.eq_bands[index][0], words[0]);
    store_guarded(record.eq_bands[index][1], words[1]);
  }
}

// The equalizer as raw words. Copying only these keeps an attempt short: its locked operations must wait for
// all stores before them.
struct RawEq {
  std::array<EqBandWords, eq_band_count> bands;
  std::uint64_t word;
  std::uint64_t revision;
};

// Makes one attempt to read the equalizer. Returns false, with `raw` unspecified, if a writer was active.
bool try_read_eq(ControlBridgeRecord& record, RawEq& raw) {
  const std::uint64_t sequence = load_word(record.eq_sequence);
  if (sequence % 2 != 0) return false;
  for (std::size_t index = 0; index < eq_band_count; ++index) {
    raw.bands[index] = {load_guarded(record.eq_bands[index][0]), load_guarded(record.eq_bands[index][1])};
  }
  raw.word = load_word(record.eq_word);
  raw.revision = load_word(record.eq_revision);
  return load_word(record.eq_sequence) == sequence;
}

void unpack_eq(const RawEq& raw, EqSettings& out) {
  out.bypass = (raw.word & 1) != 0;
  out.fade_ms = static_cast<float>(static_cast<std::uint16_t>(raw.word >> fade_shift)) / tenths_per_unit;
  out.bands = std::bit_cast<std::array<EqBand, eq_band_count>>(raw.bands);
  out.revision = raw.revision;
}

}  // namespace

std::uint16_t tenths_db(float decibels) {
  return static_cast<std::uint16_t>(scaled(decibels, -120.0f, 120.0f, tenths_per_unit));
}

std::uint64_t pack_footstep(bool bypass, bool bypass_all, float enhance_strength) {
  return (bypass ? footstep_bypass_bit : 0) | (bypass_all ? footstep_bypass_all_bit : 0) |
         std::bit_cast<std::uint32_t>(enhance_strength);
}

FootstepParameters unpack_footstep(std::uint64_t word) {
  return {(word & footstep_bypass_bit) != 0, (word & footstep_bypass_all_bit) != 0,
          std::bit_cast<float>(static_cast<std::uint32_t>(word)), word};
}

std::uint64_t pack_algorithm(const AlgorithmParameters& parameters) {
  const auto field = [](auto value, unsigned shift) { return static_cast<std::uint64_t>(value) << shift; };
  return algorithm_valid_bit | (parameters.limiter_enabled ? algorithm_limiter_bit : 0) |
         field(std::clamp(parameters.stereo_link, 0, 3), stereo_link_shift) |
         field(std::clamp(parameters.mask_frequency_smooth, 0, 15), frequency_smooth_shift) |
         field(scaled(parameters.mask_time_alpha, 0.0f, 1.0f, alpha_steps), time_alpha_shift) |
         field(tenths_db(parameters.limiter_ceiling_db), limiter_ceiling_shift) |
         field(tenths_db(parameters.output_trim_db), output_trim_shift);
}

AlgorithmParameters unpack_algorithm(std::uint64_t word) {
  AlgorithmParameters parameters;
  parameters.raw = word;
  if ((word & algorithm_valid_bit) == 0) return parameters;
  parameters.output_trim_db = decibels_of(word, output_trim_shift);
  parameters.mask_time_alpha = static_cast<float>((word >> time_alpha_shift) & 0xFF) / alpha_steps;
  parameters.mask_frequency_smooth = static_cast<std::int32_t>((word >> frequency_smooth_shift) & 0xF);
  parameters.limiter_enabled = (word & algorithm_limiter_bit) != 0;
  parameters.limiter_ceiling_db = decibels_of(word, limiter_ceiling_shift);
  parameters.stereo_link = static_cast<std::int32_t>((word >> stereo_link_shift) & 0x3);
  return parameters;
}

std::uint64_t pack_eq_word(bool bypass, float fade_ms) {
  const auto tenths = static_cast<std::uint64_t>(scaled(fade_ms, 0.0f, fade_limit_ms, tenths_per_unit));
  return (tenths << fade_shift) | (bypass ? 1u : 0u);
}

float band_frequency(std::size_t index) {
  // 20 * 1000^(index / 14) in float arithmetic. The table makes new records identical on all systems, because
  // the C libraries' pow differs in the last bit. It also saves loading a math library at start.
  static constexpr std::array<float, eq_band_count> frequencies{
      20.0f,       32.7578773f, 53.6539154f, 87.8794098f, 143.937149f, 235.753754f, 386.139557f, 632.455505f,
      1035.89514f, 1696.68567f, 2778.99146f, 4551.69141f, 7455.18799f, 12210.8018f, 20000.0f};
  return frequencies[index];
}

void initialise_record(ControlBridgeRecord& record) {
  store_word(record.magic, std::uint32_t{0});
  record.version = record_layout_version;
  record.size = record_size_bytes;
  record.reserved_00c = 0;
  const auto clear = [](auto&... words) {
    (store_word(words, std::remove_reference_t<decltype(words)>{0}), ...);
  };
  clear(record.initialize_count, record.lock_count, record.stream_word, record.pipeline_word,
        record.query_word, record.initialize_attempts_word, record.initialize_sizes_word,
        record.initialize_mode_word, record.initialize_progress_word, record.lock_attempt_word,
        record.format_negotiation_word, record.lock_progress_word, record.lock_input_word,
        record.lock_output_word, record.applied_word, record.processing_word, record.mode_masks_word,
        record.total_processed_blocks, record.reserved_0a0, record.capture_request, record.capture_report);
  store_word(record.algorithm_word, pack_algorithm(AlgorithmParameters{}));
  store_word(record.footstep_word, pack_footstep(true, false, 0.0f));
  clear(record.eq_sequence, record.eq_revision);
  std::array<EqBand, eq_band_count> bands;
  for (std::size_t index = 0; index < eq_band_count; ++index) {
    bands[index] = {0, band_frequency(index), 0.0f, 0.707f};
  }
  store_bands(record, bands);
  store_word(record.eq_word, pack_eq_word(true, 20.0f));
  full_barrier();
  store_word(record.magic, record_magic);
}

RecordState inspect_record(ControlBridgeRecord& record) {
  if (load_word(record.magic) != record_magic) return RecordState::unfinished;
  const bool ours = record.version == record_layout_version && record.size == record_size_bytes;
  return ours ? RecordState::ready : RecordState::incompatible;
}

BridgeResult publish_footstep(ControlBridgeRecord& record, bool bypass, bool bypass_all,
                              float enhance_strength) {
  if (!strength_allowed(enhance_strength)) return BridgeResult::value_refused;
  store_word(record.footstep_word, pack_footstep(bypass, bypass_all, enhance_strength));
  return BridgeResult::done;
}

void publish_algorithm(ControlBridgeRecord& record, const AlgorithmParameters& parameters) {
  store_word(record.algorithm_word, pack_algorithm(parameters));
}

void publish_eq(ControlBridgeRecord& record, const EqSettings& settings) {
  add_to_word(record.eq_sequence, std::uint64_t{1});
  store_bands(record, settings.bands);
  store_word(record.eq_word, pack_eq_word(settings.bypass, settings.fade_ms));
  add_to_word(record.eq_revision, std::uint64_t{1});
  add_to_word(record.eq_sequence, std::uint64_t{1});
}

void publish_capture_request(ControlBridgeRecord& record, std::uint16_t action, std::uint16_t seconds) {
  // Load and store need not be one atomic step: this process is the only writer of the word.
  const auto sequence = static_cast<std::uint32_t>(load_word(record.capture_request) >> 32) + 1u;
  store_word(record.capture_request,
             (std::uint64_t{sequence} << 32) | (std::uint64_t{seconds} << 16) | action);
}

bool read_footstep(ControlBridgeRecord& record, FootstepParameters& out) {
  out = unpack_footstep(load_word(record.footstep_word));
  return strength_allowed(out.enhance_strength);
}

bool read_algorithm(ControlBridgeRecord& record, AlgorithmParameters& out) {
  out = unpack_algorithm(load_word(record.algorithm_word));
  return (out.raw & algorithm_valid_bit) != 0;
}

bool read_eq(ControlBridgeRecord& record, EqSettings& out) {
  RawEq raw;
  for (int attempt = 0; attempt < eq_read_attempts; ++attempt) {
    if (!try_read_eq(record, raw)) continue;
    unpack_eq(raw, out);
    return true;
  }
  return false;
}

void read_capture_request(ControlBridgeRecord& record, CaptureRequest& out) {
  const std::uint64_t word = load_word(record.capture_request);
  out.sequence = word >> 32;
  out.action = static_cast<std::uint16_t>(word);
  out.seconds = static_cast<std::uint16_t>(word >> 16);
}

}  // namespace velmora
