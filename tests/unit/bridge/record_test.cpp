// One file because it mirrors one source: the layout, the packing and the protocol, in the order of its
// header.
#include "bridge/record.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <map>

namespace velmora {
namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();

using RecordBytes = std::array<unsigned char, 576>;

RecordBytes bytes_of(const ControlBridgeRecord& record) { return std::bit_cast<RecordBytes>(record); }

// A record in which every byte is 0xAA.
ControlBridgeRecord poisoned_record() {
  RecordBytes bytes;
  bytes.fill(0xAA);
  return std::bit_cast<ControlBridgeRecord>(bytes);
}

ControlBridgeRecord new_record() {
  ControlBridgeRecord record{};
  initialise_record(record);
  return record;
}

// Every word before the bands that is not zero in a new record, typed independently of the header.
const std::map<std::size_t, std::uint64_t> first_words = {
    {0x000, 0x0000000831434D56},  // magic and version
    {0x008, 576},                 // size
    {0x010, 0x0000000100000000},  // footstep
    {0x0B8, 0x0000FFF600060001},  // algorithm
    {0x0C8, 0x000000C800000001},  // equalizer
};
constexpr std::size_t bands_offset = 0x0D8;
constexpr std::size_t band_bytes = 16;
constexpr std::size_t tail_offset = 0x1C8;

std::uint64_t value_at(const RecordBytes& bytes, std::size_t offset, std::size_t width) {
  std::uint64_t value = 0;
  for (std::size_t index = width; index > 0; --index) value = (value << 8) | bytes[offset + index - 1];
  return value;
}

float float_at(const RecordBytes& bytes, std::size_t offset) {
  return std::bit_cast<float>(static_cast<std::uint32_t>(value_at(bytes, offset, 4)));
}

std::int64_t units_between(float left, float right) {
  return std::abs(std::int64_t{std::bit_cast<std::int32_t>(left)} - std::bit_cast<std::int32_t>(right));
}

// The exponent is a float, as rounding it moves band 13 by three units. The power is computed in double; the
// C library's result may differ by two units.
float expected_frequency(std::size_t band) {
  const float exponent = static_cast<float>(band) / 14.0f;
  return static_cast<float>(20.0 * std::pow(1000.0, static_cast<double>(exponent)));
}

// The offsets at which two records differ, as text.
std::string changed_offsets(const ControlBridgeRecord& before, const ControlBridgeRecord& after) {
  const RecordBytes left = bytes_of(before);
  const RecordBytes right = bytes_of(after);
  std::string out;
  for (std::size_t offset = 0; offset < left.size(); offset += 4) {
    if (std::memcmp(&left[offset], &right[offset], 4) != 0) out += std::to_string(offset) + " ";
  }
  return out;
}

void expect_first_contents(const RecordBytes& bytes, unsigned char tail) {
  for (std::size_t offset = 0; offset < bands_offset; offset += 8) {
    const auto word = first_words.find(offset);
    EXPECT_EQ(value_at(bytes, offset, 8), word == first_words.end() ? 0 : word->second) << offset;
  }
  for (std::size_t band = 0; band < 15; ++band) {
    SCOPED_TRACE(band);
    const std::size_t at = bands_offset + band * band_bytes;
    EXPECT_EQ(value_at(bytes, at, 4), 0u);
    EXPECT_LE(units_between(float_at(bytes, at + 4), expected_frequency(band)), 2);
    EXPECT_EQ(value_at(bytes, at + 8, 4), 0u);
    EXPECT_EQ(float_at(bytes, at + 12), 0.707f);
  }
  ASSERT_EQ(bands_offset + 15 * band_bytes, tail_offset);
  for (std::size_t offset = tail_offset; offset < bytes.size(); ++offset)
    EXPECT_EQ(bytes[offset], tail) << offset;
}

TEST(NewRecord, HoldsItsFirstContents) { expect_first_contents(bytes_of(new_record()), 0); }

TEST(NewRecord, OverwritesTheRegionExceptTheReservedTail) {
  ControlBridgeRecord record = poisoned_record();
  initialise_record(record);
  expect_first_contents(bytes_of(record), 0xAA);
}

TEST(NewRecord, ReadsBackTheDefaults) {
  ControlBridgeRecord record = new_record();
  EXPECT_EQ(inspect_record(record), RecordState::ready);
  FootstepParameters footstep{};
  EXPECT_TRUE(read_footstep(record, footstep));
  EXPECT_TRUE(footstep.bypass);
  EXPECT_FALSE(footstep.bypass_all);
  EXPECT_EQ(footstep.enhance_strength, 0.0f);
  EXPECT_EQ(footstep.raw, 0x0000000100000000u);
  AlgorithmParameters algorithm{1, 1, 1, false, 1, 3, 0};
  EXPECT_TRUE(read_algorithm(record, algorithm));
  EXPECT_EQ(pack_algorithm(algorithm), pack_algorithm(AlgorithmParameters{}));
  EXPECT_EQ(algorithm.raw, 0x0000FFF600060001u);
  EqSettings eq;
  EXPECT_TRUE(read_eq(record, eq));
  EXPECT_TRUE(eq.bypass);
  EXPECT_EQ(eq.fade_ms, 20.0f);
  EXPECT_EQ(eq.revision, 0u);
  EXPECT_EQ(eq.bands[0].freq_hz, 20.0f);
  EXPECT_EQ(eq.bands[14].freq_hz, 20000.0f);
  CaptureRequest capture{9, 9, 9};
  read_capture_request(record, capture);
  EXPECT_EQ(capture.sequence, 0u);
  EXPECT_EQ(capture.action, 0u);
  EXPECT_EQ(capture.seconds, 0u);
}

TEST(BandFrequency, SpreadsFifteenPointsFrom20To20000) {
  EXPECT_EQ(band_frequency(0), 20.0f);
  EXPECT_EQ(band_frequency(14), 20000.0f);
  for (std::size_t index = 0; index < eq_band_count; ++index) {
    EXPECT_LE(units_between(band_frequency(index), expected_frequency(index)), 2) << index;
  }
}

TEST(DefaultSettings, AreBypassedAndFlat) {
  const EqSettings eq;
  EXPECT_TRUE(eq.bypass);
  EXPECT_EQ(eq.fade_ms, 20.0f);
  EXPECT_EQ(eq.revision, 0u);
  ASSERT_EQ(eq.bands.size(), 15u);
  for (const EqBand& band : eq.bands) EXPECT_EQ(band, (EqBand{0, 1000.0f, 0.0f, 0.707f}));
  const AlgorithmParameters algorithm;
  EXPECT_EQ(algorithm.output_trim_db, 0.0f);
  EXPECT_EQ(algorithm.mask_time_alpha, 0.0f);
  EXPECT_EQ(algorithm.mask_frequency_smooth, 0);
  EXPECT_TRUE(algorithm.limiter_enabled);
  EXPECT_EQ(algorithm.limiter_ceiling_db, -1.0f);
  EXPECT_EQ(algorithm.stereo_link, 1);
  EXPECT_EQ(algorithm.raw, 0u);
}

TEST(BridgeResults, HaveFixedNumbers) {
  EXPECT_EQ(static_cast<unsigned>(BridgeResult::done), 0u);
  EXPECT_EQ(static_cast<unsigned>(BridgeResult::value_refused), 1u);
  EXPECT_EQ(static_cast<unsigned>(BridgeResult::not_open), 6u);
}

TEST(PackedValues, KeepDecibelsInTenths) {
  const struct {
    float decibels;
    std::uint16_t tenths;
  } rows[] = {
      {0.0f, 0},         {-0.0f, 0},       {1.0f, 10},    {-1.0f, 0xFFF6},   {-5.5f, 0xFFC9},
      {120.0f, 1200},    {120.1f, 1200},   {1e30f, 1200}, {-120.0f, 0xFB50}, {-120.1f, 0xFB50},
      {0.25f, 3},        {-0.25f, 0xFFFD}, {0.75f, 8},    {-0.75f, 0xFFF8},  // a half rounds away from zero
      {0.04f, 0},        {-0.04f, 0},      {0.06f, 1},    {infinity, 1200},  {-infinity, 0xFB50},
      {0.049999997f, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.decibels);
    EXPECT_EQ(tenths_db(row.decibels), row.tenths);
  }
}

TEST(PackedValues, RoundTenthsLikeDoubleArithmetic) {
  for (int tenth = -1300; tenth <= 1300; ++tenth) {
    for (const float offset : {0.0f, 0.03f, 0.05f, 0.07f, -0.03f, -0.05f}) {
      const float decibels = static_cast<float>(tenth) / 10.0f + offset;
      const float product = std::min(std::max(decibels, -120.0f), 120.0f) * 10.0f;
      const double away = std::floor(std::abs(static_cast<double>(product)) + 0.5);
      const int expected = static_cast<int>(product < 0 ? -away : away);
      ASSERT_EQ(tenths_db(decibels), static_cast<std::uint16_t>(expected)) << decibels;
    }
  }
}

TEST(PackedValues, PackTheFootstepWord) {
  const struct {
    bool bypass;
    bool bypass_all;
    float strength;
    std::uint64_t word;
  } rows[] = {
      {true, false, 0.0f, 0x0000000100000000u},    {false, false, 0.0f, 0},
      {false, true, 0.5f, 0x000000023F000000u},    {true, true, 1.0f, 0x000000033F800000u},
      {false, false, 0.625f, 0x000000003F200000u},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.word);
    EXPECT_EQ(pack_footstep(row.bypass, row.bypass_all, row.strength), row.word);
    const FootstepParameters unpacked = unpack_footstep(row.word);
    EXPECT_EQ(unpacked.bypass, row.bypass);
    EXPECT_EQ(unpacked.bypass_all, row.bypass_all);
    EXPECT_EQ(unpacked.enhance_strength, row.strength);
    EXPECT_EQ(unpacked.raw, row.word);
  }
}

TEST(PackedValues, PackEachFieldOfTheAlgorithmWordInItsBits) {
  AlgorithmParameters none;
  none.limiter_enabled = false;
  none.limiter_ceiling_db = 0;
  none.stereo_link = 0;
  const auto with = [&](auto change) {
    AlgorithmParameters parameters = none;
    change(parameters);
    return pack_algorithm(parameters);
  };
  EXPECT_EQ(pack_algorithm(none), 1u);
  EXPECT_EQ(with([](auto& p) { p.limiter_enabled = true; }), 0x20001u);
  EXPECT_EQ(with([](auto& p) { p.stereo_link = 3; }), 0xC0001u);
  EXPECT_EQ(with([](auto& p) { p.mask_frequency_smooth = 15; }), 0xF00001u);
  EXPECT_EQ(with([](auto& p) { p.mask_time_alpha = 1; }), 0xFF000001u);
  EXPECT_EQ(with([](auto& p) { p.limiter_ceiling_db = -0.1f; }), 0x0000FFFF00000001u);
  EXPECT_EQ(with([](auto& p) { p.output_trim_db = -0.1f; }), 0xFFFF000000000001u);
  EXPECT_EQ(with([](auto& p) { p.raw = ~std::uint64_t{0}; }), 1u);
  EXPECT_EQ(pack_algorithm(AlgorithmParameters{}), 0x0000FFF600060001u);
}

TEST(PackedValues, ClampTheAlgorithmParameters) {
  const struct {
    AlgorithmParameters given;
    AlgorithmParameters stored;
  } rows[] = {
      {{0, 0, 20, true, 0, -1, 0}, {0, 0, 15, true, 0, 0, 0}},
      {{0, 0, -1, true, 0, 4, 0}, {0, 0, 0, true, 0, 3, 0}},
      {{200, 2, 16, true, -200, 1000, 0}, {120, 1, 15, true, -120, 3, 0}},
      {{-200, -1, -1000, true, 200, -1000, 0}, {-120, 0, 0, true, 120, 0, 0}},
      {{infinity, infinity, 0, true, -infinity, 0, 0}, {120, 1, 0, true, -120, 0, 0}},
      {{not_a_number, not_a_number, 0, true, not_a_number, 0, 0}, {0, 0, 0, true, 0, 0, 0}},
  };
  for (const auto& row : rows) EXPECT_EQ(pack_algorithm(row.given), pack_algorithm(row.stored));
}

TEST(PackedValues, UnpackEveryStepOfTheAlgorithmWord) {
  for (std::uint64_t step = 0; step < 256; ++step) {
    const std::uint64_t word = 1 | (step << 24);
    EXPECT_EQ(pack_algorithm(unpack_algorithm(word)), word) << step;
  }
  for (int tenths = -1200; tenths <= 1200; ++tenths) {
    const auto field = std::uint64_t{static_cast<std::uint16_t>(tenths)};
    const std::uint64_t word = 1 | (field << 32) | (field << 48);
    EXPECT_EQ(pack_algorithm(unpack_algorithm(word)), word) << tenths;
    EXPECT_EQ(unpack_algorithm(word).output_trim_db, static_cast<float>(tenths) / 10.0f);
    EXPECT_EQ(unpack_algorithm(word).limiter_ceiling_db, static_cast<float>(tenths) / 10.0f);
  }
  for (std::uint64_t smooth = 0; smooth < 16; ++smooth) {
    EXPECT_EQ(unpack_algorithm(1 | (smooth << 20)).mask_frequency_smooth, static_cast<int>(smooth));
  }
  for (std::uint64_t link = 0; link < 4; ++link) {
    EXPECT_EQ(unpack_algorithm(1 | (link << 18)).stereo_link, static_cast<int>(link));
  }
  EXPECT_TRUE(unpack_algorithm(0x20001).limiter_enabled);
  EXPECT_FALSE(unpack_algorithm(1).limiter_enabled);
}

TEST(PackedValues, UnpackAnInvalidWordAsTheDefaults) {
  const std::uint64_t word = 0x123456789ABCDEF0u;
  const AlgorithmParameters parameters = unpack_algorithm(word);
  EXPECT_EQ(parameters.raw, word);
  EXPECT_EQ(pack_algorithm(parameters), pack_algorithm(AlgorithmParameters{}));
}

TEST(PackedValues, PackTheEqualizerWord) {
  const struct {
    bool bypass;
    float fade_ms;
    std::uint64_t word;
  } rows[] = {
      {true, 20.0f, 0x000000C800000001u},
      {false, 0.0f, 0},
      {false, 0.1f, 0x100000000u},
      {false, 200.0f, 2000ull << 32},
      {false, 500.0f, 2000ull << 32},
      {true, -1.0f, 1},
      {false, 0.25f, 3ull << 32},
      {false, infinity, 2000ull << 32},
      {false, -infinity, 0},
      {true, not_a_number, 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.fade_ms);
    EXPECT_EQ(pack_eq_word(row.bypass, row.fade_ms), row.word);
  }
}

TEST(InspectRecord, DistinguishesReadyUnfinishedAndIncompatible) {
  const struct {
    std::uint32_t magic, version, size;
    RecordState state;
  } rows[] = {
      {0x31434D56, 8, 576, RecordState::ready},
      {0x31434D56, 7, 576, RecordState::incompatible},
      {0x31434D56, 9, 576, RecordState::incompatible},
      {0x31434D56, 8, 575, RecordState::incompatible},
      {0x31434D56, 8, 577, RecordState::incompatible},
      {0x31434D56, 8, 0x10240, RecordState::incompatible},
      {0, 8, 576, RecordState::unfinished},
      {0, 7, 1, RecordState::unfinished},
      {0x564D4331, 8, 576, RecordState::unfinished},
      {0x31434D57, 8, 576, RecordState::unfinished},
  };
  for (const auto& row : rows) {
    ControlBridgeRecord record = new_record();
    record.magic = row.magic;
    record.version = row.version;
    record.size = row.size;
    const ControlBridgeRecord before = record;
    EXPECT_EQ(inspect_record(record), row.state) << row.magic << ' ' << row.version << ' ' << row.size;
    EXPECT_EQ(changed_offsets(before, record), "");
  }
}

TEST(Footstep, ChangesOnlyItsOwnWord) {
  ControlBridgeRecord record = poisoned_record();
  const ControlBridgeRecord before = record;
  EXPECT_EQ(publish_footstep(record, false, true, 0.5f), BridgeResult::done);
  EXPECT_EQ(record.footstep_word, 0x000000023F000000u);
  EXPECT_EQ(changed_offsets(before, record), "16 20 ");
}

TEST(Footstep, AcceptsStrengthsFrom0To1) {
  for (const float strength : {0.0f, -0.0f, 1.0f, 0.5f, std::numeric_limits<float>::denorm_min()}) {
    ControlBridgeRecord record = new_record();
    EXPECT_EQ(publish_footstep(record, true, false, strength), BridgeResult::done) << strength;
    FootstepParameters footstep{};
    EXPECT_TRUE(read_footstep(record, footstep));
    EXPECT_EQ(std::bit_cast<std::uint32_t>(footstep.enhance_strength),
              std::bit_cast<std::uint32_t>(strength));
  }
}

TEST(Footstep, RefusesEveryOtherStrengthAndStoresNothing) {
  for (const float strength :
       {1.5f, -0.1f, std::nextafter(1.0f, 2.0f), -std::numeric_limits<float>::denorm_min(), infinity,
        -infinity, not_a_number}) {
    ControlBridgeRecord record = new_record();
    const ControlBridgeRecord before = record;
    EXPECT_EQ(publish_footstep(record, false, true, strength), BridgeResult::value_refused) << strength;
    EXPECT_EQ(changed_offsets(before, record), "");
  }
}

TEST(Footstep, FillsTheOutputEvenFromARefusedWord) {
  for (const float strength : {1.5f, -0.1f, infinity}) {
    ControlBridgeRecord record = new_record();
    record.footstep_word = 0xFFFFFFFC00000000u | std::bit_cast<std::uint32_t>(strength);
    FootstepParameters footstep{true, true, 0, 0};
    EXPECT_FALSE(read_footstep(record, footstep)) << strength;
    EXPECT_FALSE(footstep.bypass);
    EXPECT_FALSE(footstep.bypass_all);
    EXPECT_EQ(footstep.enhance_strength, strength);
    EXPECT_EQ(footstep.raw, record.footstep_word);
  }
  ControlBridgeRecord record = new_record();
  record.footstep_word = 0x000000037FC00000u;
  FootstepParameters footstep{};
  EXPECT_FALSE(read_footstep(record, footstep));
  EXPECT_TRUE(std::isnan(footstep.enhance_strength));
  EXPECT_TRUE(footstep.bypass && footstep.bypass_all);
}

TEST(Algorithm, ChangesOnlyItsOwnWord) {
  ControlBridgeRecord record = poisoned_record();
  const ControlBridgeRecord before = record;
  publish_algorithm(record, AlgorithmParameters{});
  EXPECT_EQ(changed_offsets(before, record), "184 188 ");
}

TEST(Algorithm, ReadsBackWhatWasPublished) {
  ControlBridgeRecord record = new_record();
  publish_algorithm(record, {-20.0f, 0.0f, 0, false, -12.0f, 2, 0});
  AlgorithmParameters read;
  EXPECT_TRUE(read_algorithm(record, read));
  EXPECT_EQ(read.output_trim_db, -20.0f);
  EXPECT_EQ(read.mask_time_alpha, 0.0f);
  EXPECT_EQ(read.mask_frequency_smooth, 0);
  EXPECT_FALSE(read.limiter_enabled);
  EXPECT_EQ(read.limiter_ceiling_db, -12.0f);
  EXPECT_EQ(read.stereo_link, 2);
  EXPECT_EQ(read.raw, record.algorithm_word);
}

TEST(Algorithm, ReadsAnInvalidWordAsTheDefaults) {
  ControlBridgeRecord record = new_record();
  record.algorithm_word = 0xFFFFFFFFFFFFFFFEu;
  AlgorithmParameters read{9, 9, 9, false, 9, 9, 0};
  EXPECT_FALSE(read_algorithm(record, read));
  EXPECT_EQ(read.raw, 0xFFFFFFFFFFFFFFFEu);
  EXPECT_EQ(pack_algorithm(read), pack_algorithm(AlgorithmParameters{}));
}

EqSettings distinct_settings() {
  EqSettings settings;
  settings.bypass = false;
  settings.fade_ms = 12.3f;
  settings.revision = 999;
  for (std::size_t index = 0; index < eq_band_count; ++index) {
    const auto number = static_cast<float>(index);
    settings.bands[index] = {static_cast<std::int32_t>(index % 9), 100 + number, -number, 1 + number};
  }
  return settings;
}

TEST(Equalizer, ReadsBackWhatWasPublished) {
  ControlBridgeRecord record = new_record();
  const EqSettings sent = distinct_settings();
  publish_eq(record, sent);
  EqSettings read;
  ASSERT_TRUE(read_eq(record, read));
  EXPECT_FALSE(read.bypass);
  EXPECT_EQ(read.fade_ms, 123.0f / 10.0f);
  EXPECT_EQ(read.bands, sent.bands);
  EXPECT_EQ(read.revision, 1u);
  const RecordBytes bytes = bytes_of(record);
  EXPECT_EQ(value_at(bytes, 0x0C8, 8), 123ull << 32);
  EXPECT_EQ(std::memcmp(&bytes[bands_offset], sent.bands.data(), tail_offset - bands_offset), 0);
}

TEST(EqualizerBand, IsLaidOutAsTypeFrequencyGainAndQ) {
  const EqBand band{7, 1.5f, -2.5f, 3.5f};
  const auto words = std::bit_cast<std::array<std::uint32_t, 4>>(band);
  EXPECT_EQ(words, (std::array<std::uint32_t, 4>{7, 0x3FC00000, 0xC0200000, 0x40600000}));
}

TEST(Equalizer, IncreasesItsSequenceBy2AndItsRevisionBy1) {
  ControlBridgeRecord record = new_record();
  for (std::uint64_t count = 1; count <= 5; ++count) {
    publish_eq(record, distinct_settings());
    EXPECT_EQ(record.eq_sequence, 2 * count);
    EXPECT_EQ(record.eq_revision, count);
  }
}

TEST(Equalizer, ChangesOnlyItsOwnBlock) {
  ControlBridgeRecord record = poisoned_record();
  const RecordBytes before = bytes_of(record);
  publish_eq(record, distinct_settings());
  const RecordBytes after = bytes_of(record);
  EXPECT_EQ(std::memcmp(before.data(), after.data(), 0x0C0), 0);
  EXPECT_EQ(std::memcmp(&before[tail_offset], &after[tail_offset], 120), 0);
}

TEST(Equalizer, LimitsItsFade) {
  const struct {
    float given_ms, read_ms;
  } rows[] = {{500, 200}, {200, 200}, {200.1f, 200}, {-1, 0},
              {0, 0},     {0.04f, 0}, {0.06f, 0.1f}, {199.9f, 199.9f}};
  for (const auto& row : rows) {
    ControlBridgeRecord record = new_record();
    EqSettings settings;
    settings.fade_ms = row.given_ms;
    publish_eq(record, settings);
    EqSettings read;
    ASSERT_TRUE(read_eq(record, read));
    EXPECT_EQ(read.fade_ms, row.read_ms);
  }
}

TEST(Equalizer, IsNotReadWhileItsSequenceIsOdd) {
  ControlBridgeRecord record = new_record();
  publish_eq(record, distinct_settings());
  record.eq_sequence = 3;
  const ControlBridgeRecord before = record;
  EqSettings out;
  out.fade_ms = 1.5f;
  out.revision = 77;
  out.bands[3].q = 42;
  EXPECT_FALSE(read_eq(record, out));
  EXPECT_EQ(out.fade_ms, 1.5f);
  EXPECT_EQ(out.revision, 77u);
  EXPECT_EQ(out.bands[3].q, 42.0f);
  EXPECT_TRUE(out.bypass);
  EXPECT_EQ(changed_offsets(before, record), "");
}

TEST(CaptureRequests, CarryActionSecondsAndANewSequence) {
  ControlBridgeRecord record = new_record();
  const ControlBridgeRecord before = record;
  publish_capture_request(record, 2, 30);
  EXPECT_EQ(record.capture_request, 0x00000001001E0002u);
  EXPECT_EQ(changed_offsets(before, record), "168 172 ");
  publish_capture_request(record, 0xFFFF, 0xFFFE);
  EXPECT_EQ(record.capture_request, 0x00000002FFFEFFFFu);
  CaptureRequest read{};
  read_capture_request(record, read);
  EXPECT_EQ(read.sequence, 2u);
  EXPECT_EQ(read.action, 0xFFFFu);
  EXPECT_EQ(read.seconds, 0xFFFEu);
  record.capture_request = 0xFFFFFFFF00010001u;
  publish_capture_request(record, 3, 4);  // the sequence wraps
  EXPECT_EQ(record.capture_request, 0x0000000000040003u);
}

}  // namespace
}  // namespace velmora
