// The record under several threads. Published data carries its own check, so a mixture shows. Waits end after
// 30 seconds, so missing progress fails instead of hanging.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <bit>
#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

#include "bridge/diagnostics.h"
#include "bridge/record.h"
#include "bridge/words.h"

namespace velmora {
namespace {

constexpr int publications = 4000;
constexpr int reader_count = 3;
constexpr int fade_steps = 2000;
constexpr std::chrono::seconds patience{30};

// A deadline that starts at construction.
class Patience {
 public:
  bool is_over() const { return std::chrono::steady_clock::now() > end_; }

 private:
  std::chrono::steady_clock::time_point end_ = std::chrono::steady_clock::now() + patience;
};

// Settings in which every field follows from one number.
EqSettings settings_of(std::uint64_t number) {
  EqSettings settings;
  settings.bypass = number % 2 != 0;
  settings.fade_ms = static_cast<float>(number % fade_steps) / 10.0f;
  for (std::size_t index = 0; index < eq_band_count; ++index) {
    const auto value = static_cast<float>(number + index);
    settings.bands[index] = {static_cast<std::int32_t>((number + index) % 9), value, -value, value + 0.5f};
  }
  return settings;
}

// Publications and revisions both count from 1, so the revision determines the whole reading.
bool is_whole(const EqSettings& read) {
  const EqSettings expected = settings_of(read.revision);
  return read.bypass == expected.bypass && read.bands == expected.bands &&
         std::lround(read.fade_ms * 10) == static_cast<long>(read.revision % fade_steps);
}

// A wrong reader: it ignores the sequence word and yields half-way.
EqSettings read_without_sequence(ControlBridgeRecord& record) {
  EqSettings out;
  for (std::size_t index = 0; index < eq_band_count; ++index) {
    if (index == eq_band_count / 2) std::this_thread::yield();
    out.bands[index] = std::bit_cast<EqBand>(
        EqBandWords{load_guarded(record.eq_bands[index][0]), load_guarded(record.eq_bands[index][1])});
  }
  const std::uint64_t word = load_word(record.eq_word);
  out.bypass = (word & 1) != 0;
  out.fade_ms = static_cast<float>(static_cast<std::uint16_t>(word >> 32)) / 10.0f;
  out.revision = load_word(record.eq_revision);
  return out;
}

struct Readings {
  int whole = 0;
  int mixed = 0;
  int went_back = 0;
  std::uint64_t last_revision = 0;
};

TEST(RecordConcurrency, EqualizerReadingsAreWholeAndNeverGoBack) {
  ControlBridgeRecord record{};
  initialise_record(record);
  publish_eq(record, settings_of(1));
  std::vector<Readings> readings(reader_count);
  std::vector<std::thread> readers;
  for (Readings& own : readings) {
    readers.emplace_back([&record, &own] {
      const Patience waiting;
      while (own.last_revision != publications && !waiting.is_over()) {
        EqSettings read;
        if (!read_eq(record, read)) continue;
        ++(is_whole(read) ? own.whole : own.mixed);
        if (read.revision < own.last_revision) ++own.went_back;
        own.last_revision = read.revision;
      }
    });
  }
  for (std::uint64_t number = 2; number <= publications; ++number) {
    publish_eq(record, settings_of(number));
    if (number % 16 == 0) std::this_thread::yield();
  }
  for (std::thread& reader : readers) reader.join();
  for (const Readings& own : readings) {
    EXPECT_GT(own.whole, 0);
    EXPECT_EQ(own.mixed, 0);
    EXPECT_EQ(own.went_back, 0);
    EXPECT_EQ(own.last_revision, std::uint64_t{publications});
  }
  EXPECT_EQ(record.eq_sequence, 2u * publications);
}

TEST(RecordConcurrency, AReaderWithoutTheSequenceWordSeesMixedSettings) {
  constexpr int readings_at_most = 1'000'000;
  ControlBridgeRecord record{};
  initialise_record(record);
  publish_eq(record, settings_of(1));
  std::atomic<bool> seen{false};
  std::thread writer([&] {
    for (std::uint64_t number = 2; !seen; ++number) publish_eq(record, settings_of(number));
  });
  int mixed = 0;
  for (int reading = 0; reading < readings_at_most && mixed == 0; ++reading) {
    if (!is_whole(read_without_sequence(record))) ++mixed;
  }
  seen = true;
  writer.join();
  EXPECT_GT(mixed, 0);
}

TEST(RecordConcurrency, TheFootstepWordIsNeverMixed) {
  constexpr std::uint32_t steps = 1000;
  ControlBridgeRecord record{};
  initialise_record(record);
  const auto publish = [&record](std::uint32_t step) {
    return publish_footstep(record, step % 2 != 0, step % 3 == 0, static_cast<float>(step) / steps);
  };
  ASSERT_EQ(publish(0), BridgeResult::done);
  std::atomic<bool> done{false};
  std::vector<Readings> readings(reader_count);
  std::vector<std::thread> readers;
  for (Readings& own : readings) {
    readers.emplace_back([&] {
      bool last_round = false;
      while (!last_round) {
        last_round = done;
        FootstepParameters read{};
        const bool allowed = read_footstep(record, read);
        const long step = std::lround(read.enhance_strength * steps);
        const bool whole = allowed && read.bypass == (step % 2 != 0) && read.bypass_all == (step % 3 == 0);
        ++(whole ? own.whole : own.mixed);
      }
    });
  }
  for (int round = 0; round < 50'000; ++round) {
    EXPECT_EQ(publish(static_cast<std::uint32_t>(round * 7) % (steps + 1)), BridgeResult::done);
  }
  done = true;
  for (std::thread& reader : readers) reader.join();
  for (const Readings& own : readings) {
    EXPECT_GT(own.whole, 0);
    EXPECT_EQ(own.mixed, 0);
  }
}

TEST(RecordConcurrency, CountsEveryAddition) {
  constexpr std::uint32_t adders = 4;
  constexpr std::uint32_t additions = 20'000;
  ControlBridgeRecord record{};
  initialise_record(record);
  std::vector<std::thread> threads;
  for (std::uint32_t number = 1; number <= adders; ++number) {
    threads.emplace_back([&record, number] {
      for (std::uint32_t round = 0; round < additions; ++round) {
        add_to_word(record.total_processed_blocks, std::uint64_t{number});
        add_to_word(record.lock_attempt_word, std::uint32_t{1});
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(record.total_processed_blocks, std::uint64_t{additions} * (1 + 2 + 3 + 4));
  EXPECT_EQ(record.lock_attempt_word, adders * additions);
  EXPECT_EQ(record.format_negotiation_word, 0u);
}

TEST(RecordConcurrency, AFinishedRecordHasItsFirstContents) {
  for (int round = 0; round < 300; ++round) {
    ControlBridgeRecord record{};
    std::atomic<bool> go{false};
    bool complete = false;
    std::thread reader([&] {
      while (!go) std::this_thread::yield();
      const Patience waiting;
      while (inspect_record(record) == RecordState::unfinished && !waiting.is_over()) {
        std::this_thread::yield();
      }
      EqSettings settings;
      FootstepParameters footstep{};
      complete = inspect_record(record) == RecordState::ready && read_eq(record, settings) &&
                 settings.bands[14].freq_hz == 20000.0f && settings.fade_ms == 20.0f &&
                 read_footstep(record, footstep) && footstep.raw == 0x0000000100000000u;
    });
    go = true;
    initialise_record(record);
    reader.join();
    ASSERT_TRUE(complete) << round;
  }
}

constexpr std::uint32_t writer_count = 4;
constexpr std::uint32_t writer_rounds = 5'000;

// The other half of a word that holds `number`.
std::uint32_t partner_of(std::uint32_t number) { return number * 2654435761u; }

StreamFormat format_of(std::uint32_t number) {
  return {number, static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(number >> 8),
          static_cast<std::uint8_t>(number * 3), number * 5 % 256};
}

// Odd when the query succeeds, 0 when it fails.
std::uint32_t query_value_of(std::uint32_t number) { return number % 2 == 0 ? 0 : number % 64; }

// All reports of one effect. Each word that is stored as a whole follows from one number above 16.
void live_once(ControlBridgeRecord& record, std::uint32_t number) {
  const bool odd = number % 2 != 0;
  report_initialize_attempt(record, {partner_of(number), number, partner_of(number), number, odd});
  report_initialize_success(record);
  report_initialize_progress(record, number, partner_of(number));
  report_format_negotiation(record, odd ? stage_input_negotiation : 11);
  report_lock_input_format(record, format_of(number));
  report_lock_attempt(record);
  report_lock_output_format(record, format_of(number));
  report_lock_progress(record, number, partner_of(number));
  report_lock_success(record, {number, partner_of(number), odd, number, partner_of(number)});
  report_applied(record, odd, number % 3 == 0, static_cast<float>(number));
  report_processing(record, static_cast<float>(number), number);
  report_mode(record, number % 16, static_cast<ModeKind>(number % 3));
  count_processed_block(record);
  report_query(record, number % 4, query_value_of(number / 4), query_value_of(number / 4) != 0 ? 0 : -1);
  const auto state = static_cast<std::uint16_t>(number);
  report_capture(record, state, static_cast<std::uint16_t>(state * 7), partner_of(state));
}

bool is_whole_result(std::uint32_t stage, std::int32_t result) {
  const bool pending =
      (stage == 1 || stage == 9 || stage == 11) && static_cast<std::uint32_t>(result) == result_pending;
  return pending || static_cast<std::uint32_t>(result) == partner_of(stage);
}

bool is_whole_query(std::uint32_t value, bool succeeded) { return (value % 2 != 0) == succeeded; }

// Whether each word comes from one call of live_once(), or is still zero.
bool is_whole(const ControlDiagnostics& read) {
  const StreamFormat input = format_of(read.lock_input_sample_rate);
  const StreamFormat output = format_of(read.lock_output_sample_rate);
  const auto applied = static_cast<std::uint32_t>(read.applied_strength);
  const std::uint32_t detail = partner_of(read.capture_state) | 0x80000000;
  return read.initialize_data_size == partner_of(read.initialize_declared_size) &&
         read.initialize_structure == (partner_of(read.initialize_processing_mode) & 0x7FFFFFFF) &&
         read.initialize_for_discovery_only == (read.initialize_processing_mode % 2 != 0) &&
         is_whole_result(read.initialize_stage, read.initialize_hresult) &&
         is_whole_result(read.lock_stage, read.lock_hresult) && read.lock_input_channels == input.channels &&
         read.lock_input_valid_bits == input.valid_bits &&
         read.lock_input_container_bytes == input.container_bytes &&
         read.lock_input_format_type == input.format_type && read.lock_output_channels == output.channels &&
         read.lock_output_valid_bits == output.valid_bits &&
         read.lock_output_container_bytes == output.container_bytes &&
         read.lock_output_format_type == output.format_type &&
         read.channels == partner_of(read.sample_rate) &&
         static_cast<std::uint32_t>(read.last_algorithm_error) == partner_of(read.pipeline_mode) &&
         read.algorithm_requested == (read.pipeline_mode % 2 != 0) &&
         (!read.applied_valid ||
          (read.applied_bypass == (applied % 2 != 0) && read.applied_bypass_all == (applied % 3 == 0))) &&
         read.processing_gain_db == static_cast<float>(read.processing_block_count) &&
         read.processing_gain_valid == (read.processing_block_count != 0) &&
         is_whole_query(read.last_effect_count, read.get_effects_list_succeeded) &&
         is_whole_query(read.last_controllable_effect_count, read.get_controllable_effects_list_succeeded) &&
         read.last_latency_nonzero == read.get_latency_succeeded &&
         is_whole_query(read.last_input_channel_count, read.get_input_channel_count_succeeded) &&
         (!read.capture_reported ||
          (read.capture_seconds == static_cast<std::uint16_t>(read.capture_state * 7) &&
           static_cast<std::uint32_t>(read.capture_detail_code) == detail));
}

// All counts and masks. None may ever decrease.
std::array<std::uint64_t, 16> counts_of(const ControlDiagnostics& read) {
  return {read.initialize_attempt_count,
          read.initialize_runtime_count,
          read.initialize_discovery_count,
          read.initialize_count,
          read.lock_count,
          read.input_format_negotiation_count,
          read.output_format_negotiation_count,
          read.lock_attempt_count,
          read.total_processed_blocks,
          read.get_effects_list_count,
          read.get_controllable_effects_list_count,
          read.get_latency_count,
          read.get_input_channel_count_count,
          read.initialized_mode_mask,
          read.locked_mode_mask,
          read.processed_mode_mask};
}

// Runs `work(number)` for 1 to `count` on a thread each, all at once.
template <typename Work>
void run_at_once(std::uint32_t count, const Work& work) {
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (std::uint32_t number = 1; number <= count; ++number) {
    threads.emplace_back([&go, &work, number] {
      while (!go) std::this_thread::yield();
      work(number);
    });
  }
  go = true;
  for (std::thread& thread : threads) thread.join();
}

TEST(DiagnosticsConcurrency, WordsAreNeverMixedAndCountsNeverLost) {
  ControlBridgeRecord record{};
  initialise_record(record);
  std::atomic<std::uint32_t> writers_left{writer_count};
  std::array<Readings, 2> readings;
  run_at_once(writer_count + 2, [&](std::uint32_t number) {
    if (number <= writer_count) {
      for (std::uint32_t round = 0; round < writer_rounds; ++round) {
        live_once(record, 16 + round * writer_count + number);
      }
      --writers_left;
      return;
    }
    Readings& own = readings[number - writer_count - 1];
    auto last = counts_of(ControlDiagnostics{});
    bool last_round = false;
    while (!last_round) {
      last_round = writers_left == 0;
      ControlDiagnostics read;
      read_diagnostics(record, read);
      ++(is_whole(read) ? own.whole : own.mixed);
      const auto counts = counts_of(read);
      for (std::size_t index = 0; index < counts.size(); ++index) {
        if (counts[index] < last[index]) ++own.went_back;
      }
      last = counts;
    }
  });
  for (const Readings& own : readings) {
    EXPECT_GT(own.whole, 0);
    EXPECT_EQ(own.mixed, 0);
    EXPECT_EQ(own.went_back, 0);
  }
  constexpr std::uint64_t lives = std::uint64_t{writer_count} * writer_rounds;
  ControlDiagnostics read;
  read_diagnostics(record, read);
  EXPECT_EQ(read.initialize_discovery_count, lives / 2);
  EXPECT_EQ(read.initialize_runtime_count, lives / 2);
  EXPECT_EQ(read.initialize_attempt_count, lives);
  EXPECT_EQ(read.initialize_count, lives);
  EXPECT_EQ(read.lock_count, lives);
  EXPECT_EQ(read.input_format_negotiation_count, lives / 2);
  EXPECT_EQ(read.output_format_negotiation_count, lives / 2);
  EXPECT_EQ(read.lock_attempt_count, lives);
  EXPECT_EQ(read.total_processed_blocks, lives);
  for (const std::uint32_t mask :
       {read.initialized_mode_mask, read.locked_mode_mask, read.processed_mode_mask}) {
    EXPECT_EQ(mask, 0xFFFFu);
  }
  for (const std::uint32_t count : {read.get_effects_list_count, read.get_controllable_effects_list_count,
                                    read.get_latency_count, read.get_input_channel_count_count}) {
    EXPECT_EQ(count, 255u);
  }
}

// Together they stay below the maximum of a query count.
constexpr std::uint32_t queries_of_a_thread = 60;
constexpr int query_rounds = 100;

// Lets four threads count two queries at once. Returns how many counts are missing.
template <typename Report>
std::uint64_t queries_lost(const Report& report) {
  ControlBridgeRecord record{};
  run_at_once(4, [&](std::uint32_t number) {
    for (std::uint32_t round = 0; round < queries_of_a_thread; ++round) report(record, number % 2 + 1);
  });
  ControlDiagnostics read;
  read_diagnostics(record, read);
  EXPECT_EQ(read.get_effects_list_count + read.get_input_channel_count_count, 0u);
  return std::uint64_t{4} * queries_of_a_thread - read.get_controllable_effects_list_count -
         read.get_latency_count;
}

TEST(DiagnosticsConcurrency, CountsEveryQuery) {
  for (int round = 0; round < query_rounds; ++round) {
    ASSERT_EQ(queries_lost([](ControlBridgeRecord& record, std::uint32_t query) {
                report_query(record, query, 1, 0);
              }),
              0u);
  }
}

TEST(DiagnosticsConcurrency, APlainStoreLosesQueries) {
  const Patience waiting;
  std::uint64_t lost = 0;
  while (lost == 0 && !waiting.is_over()) {
    lost = queries_lost([](ControlBridgeRecord& record, std::uint32_t query) {
      const std::uint64_t present = load_word(record.query_word);
      std::this_thread::yield();
      store_word(record.query_word, update_query_word(present, query, 1, true));
    });
  }
  EXPECT_GT(lost, 0u);
}

// Lets four threads set all bits of the masks, each its own. Returns how many are missing.
template <typename Report>
int modes_lost(const Report& report) {
  ControlBridgeRecord record{};
  run_at_once(4, [&](std::uint32_t number) {
    for (std::uint32_t mode = number - 1; mode < 16; mode += 4) {
      for (std::uint32_t kind = 0; kind < 3; ++kind) report(record, mode, static_cast<ModeKind>(kind));
    }
  });
  return 48 - std::popcount(load_word(record.mode_masks_word));
}

TEST(DiagnosticsConcurrency, KeepsEveryMode) {
  for (int round = 0; round < query_rounds; ++round) ASSERT_EQ(modes_lost(report_mode), 0);
}

TEST(DiagnosticsConcurrency, APlainStoreLosesModes) {
  const Patience waiting;
  int lost = 0;
  while (lost == 0 && !waiting.is_over()) {
    lost = modes_lost([](ControlBridgeRecord& record, std::uint32_t mode, ModeKind kind) {
      const std::uint64_t present = load_word(record.mode_masks_word);
      std::this_thread::yield();
      store_word(record.mode_masks_word,
                 present | std::uint64_t{1} << (mode + 16 * static_cast<std::uint32_t>(kind)));
    });
  }
  EXPECT_GT(lost, 0);
}

TEST(DiagnosticsConcurrency, APlainStoreLosesCounts) {
  constexpr std::uint64_t counts_of_a_thread = 1000;
  const auto lost_by = [](const auto& count) {
    ControlBridgeRecord record{};
    run_at_once(4, [&](std::uint32_t) {
      for (std::uint64_t round = 0; round < counts_of_a_thread; ++round) count(record);
    });
    return 4 * counts_of_a_thread - load_word(record.total_processed_blocks);
  };
  EXPECT_EQ(lost_by(count_processed_block), 0u);
  const Patience waiting;
  std::uint64_t lost = 0;
  while (lost == 0 && !waiting.is_over()) {
    lost = lost_by([](ControlBridgeRecord& record) {
      const std::uint64_t present = load_word(record.total_processed_blocks);
      std::this_thread::yield();
      store_word(record.total_processed_blocks, present + 1);
    });
  }
  EXPECT_GT(lost, 0u);
}

TEST(DiagnosticsConcurrency, AWordStoredInTwoHalvesIsSeenMixed) {
  constexpr int readings_at_most = 1'000'000;
  ControlBridgeRecord record{};
  initialise_record(record);
  std::atomic<bool> seen{false};
  std::thread writer([&] {
    for (std::uint32_t number = 17; !seen; ++number) {
      const std::uint64_t upper = std::uint64_t{partner_of(number)} << 32;
      const std::uint64_t present = load_word(record.initialize_sizes_word);
      store_word(record.initialize_sizes_word, upper | (present & 0xFFFFFFFF));
      std::this_thread::yield();
      store_word(record.initialize_sizes_word, upper | number);
    }
  });
  bool mixed = false;
  for (int reading = 0; reading < readings_at_most && !mixed; ++reading) {
    ControlDiagnostics read;
    read_diagnostics(record, read);
    mixed = !is_whole(read);
  }
  seen = true;
  writer.join();
  EXPECT_TRUE(mixed);
}

}  // namespace
}  // namespace velmora
