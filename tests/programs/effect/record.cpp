#include "record.h"

#include <bit>
#include <cmath>

#include "words.h"

namespace velmora::effect {
namespace {

// Offsets in bytes.
constexpr std::size_t at_magic = 0x000;
constexpr std::size_t at_version = 0x004;
constexpr std::size_t at_size = 0x008;
constexpr std::size_t at_reserved = 0x00C;
constexpr std::size_t at_footstep = 0x010;
constexpr std::size_t at_initialize_count = 0x018;
constexpr std::size_t at_lock_attempt = 0x060;
constexpr std::size_t at_format_negotiation = 0x064;
constexpr std::size_t at_lock_progress = 0x068;
constexpr std::size_t at_capture_request = 0x0A8;
constexpr std::size_t at_capture_report = 0x0B0;
constexpr std::size_t at_algorithm = 0x0B8;
constexpr std::size_t at_eq_sequence = 0x0C0;
constexpr std::size_t at_eq_word = 0x0C8;
constexpr std::size_t at_eq_revision = 0x0D0;
constexpr std::size_t at_eq_bands = 0x0D8;
constexpr std::size_t band_stride = 16;
constexpr unsigned band_count = 15;

constexpr std::uint32_t magic = 0x31434D56;
constexpr std::uint32_t other_magic = 0x32434D56;
constexpr std::uint32_t layout_version = 8;

constexpr int equalizer_attempts = 4;

float float_at(const Record& record, std::size_t offset) {
  return std::bit_cast<float>(load_plain<std::uint32_t>(record, offset));
}

float tenths(std::uint64_t word, unsigned shift) {
  return static_cast<float>(std::bit_cast<std::int16_t>(static_cast<std::uint16_t>(word >> shift))) / 10.0f;
}

Band read_band(const Record& record, std::size_t offset) {
  return {std::bit_cast<std::int32_t>(load_plain<std::uint32_t>(record, offset)),
          float_at(record, offset + 4), float_at(record, offset + 8), float_at(record, offset + 12)};
}

void write_first_band(const Record& record, unsigned index) {
  const std::size_t offset = at_eq_bands + index * band_stride;
  const float freq_hz = 20.0f * std::pow(1000.0f, static_cast<float>(index) / 14.0f);
  store<std::uint32_t>(record, offset, 0);
  store(record, offset + 4, std::bit_cast<std::uint32_t>(freq_hz));
  store(record, offset + 8, std::bit_cast<std::uint32_t>(0.0f));
  store(record, offset + 12, std::bit_cast<std::uint32_t>(0.707f));
}

}  // namespace

void write_first_contents(const Record& record, Fault fault) {
  store<std::uint32_t>(record, at_magic, 0);
  store<std::uint32_t>(record, at_version, fault == Fault::version ? layout_version - 1 : layout_version);
  store<std::uint32_t>(record, at_size, fault == Fault::size ? record_size - 1 : record_size);
  store<std::uint32_t>(record, at_reserved, 0);
  for (std::size_t at = at_initialize_count; at < at_lock_attempt; at += 8) {
    store<std::uint64_t>(record, at, 0);
  }
  store<std::uint32_t>(record, at_lock_attempt, 0);
  store<std::uint32_t>(record, at_format_negotiation, 0);
  for (std::size_t at = at_lock_progress; at <= at_capture_report; at += 8) {
    store<std::uint64_t>(record, at, 0);
  }
  store<std::uint64_t>(record, at_algorithm, 0x0000FFF600060001);
  store<std::uint64_t>(record, at_footstep, 0x0000000100000000);
  store<std::uint64_t>(record, at_eq_sequence, 0);
  store<std::uint64_t>(record, at_eq_revision, 0);
  for (unsigned index = 0; index < band_count; ++index) write_first_band(record, index);
  store<std::uint64_t>(record, at_eq_word, 0x000000C800000001);
}

void write_magic(const Record& record, Fault fault) {
  if (fault == Fault::unfinished) return;
  store(record, at_magic, fault == Fault::magic ? other_magic : magic);
}

Readiness inspect(const Record& record) {
  if (load<std::uint32_t>(record, at_magic) != magic) return Readiness::unfinished;
  const bool ours = load_plain<std::uint32_t>(record, at_version) == layout_version &&
                    load_plain<std::uint32_t>(record, at_size) == record_size;
  return ours ? Readiness::ready : Readiness::incompatible;
}

std::uint64_t footstep_word(const Record& record) { return load<std::uint64_t>(record, at_footstep); }

std::uint64_t algorithm_word(const Record& record) { return load<std::uint64_t>(record, at_algorithm); }

std::uint64_t equalizer_revision(const Record& record) { return load<std::uint64_t>(record, at_eq_revision); }

Enhancement decode_footstep(std::uint64_t word) {
  return {((word >> 32) & 1) != 0, ((word >> 33) & 1) != 0,
          std::bit_cast<float>(static_cast<std::uint32_t>(word))};
}

Algorithm decode_algorithm(std::uint64_t word) {
  if ((word & 1) == 0) return {};
  Algorithm algorithm;
  algorithm.limiter = ((word >> 17) & 1) != 0;
  algorithm.stereo_link = static_cast<unsigned>((word >> 18) & 3);
  algorithm.frequency_smooth = static_cast<unsigned>((word >> 20) & 15);
  algorithm.time_alpha = static_cast<float>((word >> 24) & 255) / 255.0f;
  algorithm.ceiling_db = tenths(word, 32);
  algorithm.trim_db = tenths(word, 48);
  return algorithm;
}

bool read_equalizer(const Record& record, Equalizer& out) {
  for (int attempt = 0; attempt < equalizer_attempts; ++attempt) {
    const auto before = load<std::uint64_t>(record, at_eq_sequence);
    if (before % 2 != 0) continue;
    for (unsigned index = 0; index < band_count; ++index) {
      out.bands[index] = read_band(record, at_eq_bands + index * band_stride);
    }
    const auto word = load<std::uint64_t>(record, at_eq_word);
    out.bypass = (word & 1) != 0;
    out.fade_ms = static_cast<float>((word >> 32) & 0xFFFF) / 10.0f;
    out.revision = load<std::uint64_t>(record, at_eq_revision);
    if (load<std::uint64_t>(record, at_eq_sequence) == before) return true;
  }
  return false;
}

CaptureRequest capture_request(const Record& record) {
  const auto word = load<std::uint64_t>(record, at_capture_request);
  return {static_cast<unsigned>(word & 0xFFFF), static_cast<unsigned>((word >> 16) & 0xFFFF),
          static_cast<std::uint32_t>(word >> 32)};
}

std::uint64_t applied_word(const Enhancement& enhancement) {
  return (std::uint64_t{1} << 63) | (std::uint64_t{enhancement.bypass_all} << 33) |
         (std::uint64_t{enhancement.bypass} << 32) | std::bit_cast<std::uint32_t>(enhancement.strength);
}

}  // namespace velmora::effect
