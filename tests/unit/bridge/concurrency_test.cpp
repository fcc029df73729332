// The record under several threads. What is published carries its own check, so that a mixture shows. Whoever
// waits for another thread's progress gives up in the end, so that what never comes is a failure and no hang.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

#include "bridge/record.h"
#include "bridge/words.h"

namespace velmora {
namespace {

constexpr int publications = 4000;
constexpr int reader_count = 3;
constexpr int fade_steps = 2000;
constexpr std::chrono::seconds patience{30};

// Whether what began at its making has had its time.
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

// The publications count from 1 as the revision does, so a whole reading is told by its revision alone.
bool is_whole(const EqSettings& read) {
  const EqSettings expected = settings_of(read.revision);
  return read.bypass == expected.bypass && read.bands == expected.bands &&
         std::lround(read.fade_ms * 10) == static_cast<long>(read.revision % fade_steps);
}

// A reader that does not look at the sequence word, and is overtaken half-way.
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

TEST(RecordConcurrency, EveryReadingOfTheEqualizerIsWholeAndNoneGoesBack) {
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

TEST(RecordConcurrency, AReaderThatIgnoresTheSequenceWordSeesMixedSettings) {
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

TEST(RecordConcurrency, TheFootstepWordIsNeverAMixtureOfTwo) {
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

TEST(RecordConcurrency, AdditionsOfSeveralThreadsAreAllCounted) {
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

TEST(RecordConcurrency, ARecordIsSeenFinishedOnlyWithItsFirstContents) {
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

}  // namespace
}  // namespace velmora
