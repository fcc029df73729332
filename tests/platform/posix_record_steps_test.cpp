// The record as another process may find it: a child works on a shared page, halted after each instruction.
// This proves the order of the stores, which no thread test can force.
// One file because all tests walk through one record in the same way.
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <functional>
#include <new>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "bridge/diagnostics.h"
#include "bridge/record.h"

namespace velmora {
namespace {

constexpr std::size_t magic_at = 0x000;
constexpr std::size_t version_at = 0x004;
constexpr std::size_t size_at = 0x008;
constexpr std::size_t reserved_at = 0x00C;
constexpr std::size_t footstep_at = 0x010;
constexpr std::size_t lock_attempt_at = 0x060;
constexpr std::size_t format_negotiation_at = 0x064;
constexpr std::size_t capture_request_at = 0x0A8;
constexpr std::size_t algorithm_at = 0x0B8;
constexpr std::size_t eq_sequence_at = 0x0C0;
constexpr std::size_t eq_word_at = 0x0C8;
constexpr std::size_t eq_revision_at = 0x0D0;
constexpr std::size_t eq_bands_at = 0x0D8;
constexpr std::size_t eq_bands_end = 0x1C8;
constexpr std::size_t record_end = 0x240;

using RecordBytes = std::array<unsigned char, record_end>;

// One record on a page that a child shares with us.
class SharedRecord {
 public:
  SharedRecord()
      : page_(mmap(nullptr, record_end, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)),
        record_(new (page_) ControlBridgeRecord{}) {}
  ~SharedRecord() { munmap(page_, record_end); }
  SharedRecord(const SharedRecord&) = delete;
  SharedRecord& operator=(const SharedRecord&) = delete;

  ControlBridgeRecord& operator*() const { return *record_; }
  ControlBridgeRecord* operator->() const { return record_; }
  void fill(unsigned char byte) const { std::memset(page_, byte, record_end); }
  RecordBytes bytes() const {
    RecordBytes copy;
    std::memcpy(copy.data(), page_, record_end);
    return copy;
  }

 private:
  void* page_;
  ControlBridgeRecord* record_;
};

// A place of the record that has another value after a step than before it. A place that is stored in two
// halves changes twice.
struct Change {
  std::size_t offset;
  int step;
  bool by_full_barrier;  // the instruction was one
  std::uint64_t value;   // the new one
};

struct Walk {
  bool ended = false;  // by coming to the end of the work, which then answered `answer`
  int answer = -1;
  std::vector<Change> changes;
  std::vector<int> full_barriers;  // steps
  int compare_exchanges = 0;
};

// The first bytes of an instruction, lowest address first.
using Code = std::array<unsigned char, sizeof(long)>;

std::size_t behind_rex(const Code& code, std::size_t at) { return (code[at] & 0xF0) == 0x40 ? at + 1 : at; }

bool is_locked_compare_exchange(const Code& code) {
  if (code[0] != 0xF0) return false;
  const std::size_t at = behind_rex(code, 1);
  return code[at] == 0x0F && (code[at + 1] == 0xB0 || code[at + 1] == 0xB1);
}

// A locked instruction, an exchange with memory, which locks by itself, or mfence.
bool is_full_barrier(const Code& code) {
  const std::size_t at = behind_rex(code, 0);
  const bool exchange = (code[at] == 0x86 || code[at] == 0x87) && (code[at + 1] & 0xC0) != 0xC0;
  return code[0] == 0xF0 || exchange || (code[0] == 0x0F && code[1] == 0xAE && code[2] == 0xF0);
}

Code code_ahead_of(pid_t child) {
  const long at = ptrace(PTRACE_PEEKUSER, child, offsetof(user_regs_struct, rip), nullptr);
  const long word = ptrace(PTRACE_PEEKTEXT, child, at, nullptr);
  Code code;
  std::memcpy(code.data(), &word, sizeof(word));
  return code;
}

std::size_t width_at(std::size_t offset) {
  const bool narrow = offset < footstep_at || offset == lock_attempt_at || offset == format_negotiation_at;
  return narrow ? 4 : 8;
}

void note_changes(const RecordBytes& before, const RecordBytes& after, const Change& kind, Walk& walk) {
  if (before == after) return;
  for (std::size_t offset = 0; offset < record_end; offset += width_at(offset)) {
    const std::size_t width = width_at(offset);
    if (std::memcmp(&before[offset], &after[offset], width) == 0) continue;
    std::uint64_t value = 0;
    std::memcpy(&value, &after[offset], width);
    walk.changes.push_back({offset, kind.step, kind.by_full_barrier, value});
  }
}

// Ends the child wherever it is; its exit code when it had come to its end.
int end_of(pid_t child, bool at_its_end) {
  if (!at_its_end) kill(child, SIGKILL);
  int status = 0;
  if (at_its_end && ptrace(PTRACE_CONT, child, nullptr, nullptr) != 0) return -1;
  if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

// Runs `work` in a child, one instruction at a time. `after_compare_exchange`, if given, runs in between
// behind each of them and gets their number, from 1.
Walk walk_through(const SharedRecord& record, const std::function<int()>& work,
                  const std::function<void(int)>& after_compare_exchange = {}) {
  constexpr int more_steps_than_any_work = 200'000;
  Walk walk;
  const pid_t child = fork();
  if (child == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0 || raise(SIGSTOP) != 0) _exit(255);
    const int answer = work();
    raise(SIGSTOP);
    _exit(answer);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) return walk;
  RecordBytes before = record.bytes();
  for (int step = 1; step <= more_steps_than_any_work; ++step) {
    const Code code = code_ahead_of(child);
    if (ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr) != 0 || waitpid(child, &status, 0) != child) break;
    if (!WIFSTOPPED(status)) return walk;
    if (WSTOPSIG(status) == SIGSTOP) walk.ended = true;
    if (WSTOPSIG(status) != SIGTRAP) break;
    const bool full_barrier = is_full_barrier(code);
    if (full_barrier) walk.full_barriers.push_back(step);
    const RecordBytes after = record.bytes();
    note_changes(before, after, {0, step, full_barrier, 0}, walk);
    before = after;
    if (!is_locked_compare_exchange(code)) continue;
    ++walk.compare_exchanges;
    if (!after_compare_exchange) continue;
    after_compare_exchange(walk.compare_exchanges);
    before = record.bytes();
  }
  walk.answer = end_of(child, walk.ended);
  return walk;
}

std::vector<std::size_t> offsets_of(const Walk& walk) {
  std::vector<std::size_t> offsets;
  for (const Change& change : walk.changes) offsets.push_back(change.offset);
  return offsets;
}

std::vector<std::size_t> words_of_the_bands() {
  std::vector<std::size_t> offsets;
  for (std::size_t offset = eq_bands_at; offset < eq_bands_end; offset += 8) offsets.push_back(offset);
  return offsets;
}

void append(std::vector<std::size_t>& list, const std::vector<std::size_t>& more) {
  list.insert(list.end(), more.begin(), more.end());
}

// What only the sequence word or the magic guards may be stored plainly.
bool is_plain(std::size_t offset) {
  return (offset > magic_at && offset < footstep_at) || (offset >= eq_bands_at && offset < eq_bands_end);
}

void expect_whole_steps(const Walk& walk) {
  int last_step = 0;
  for (const Change& change : walk.changes) {
    SCOPED_TRACE(testing::Message() << "offset 0x" << std::hex << change.offset);
    const bool in_the_head = change.offset > magic_at && change.offset < footstep_at;
    EXPECT_TRUE(in_the_head || change.step != last_step);
    EXPECT_TRUE(is_plain(change.offset) || change.by_full_barrier);
    last_step = change.step;
  }
}

// Bytes such as a foreign record may have left, no word of which is one of a new record, under our own magic.
constexpr unsigned char foreign_byte = 0xC7;

void poison(const SharedRecord& record) {
  record.fill(foreign_byte);
  record->magic = record_magic;
}

TEST(RecordSteps, ANewRecordIsFilledInTheOrderOfItsContract) {
  const SharedRecord record;
  poison(record);
  const Walk walk = walk_through(record, [&record] {
    initialise_record(*record);
    return 0;
  });
  ASSERT_TRUE(walk.ended);
  ASSERT_EQ(walk.answer, 0);

  std::vector<std::size_t> expected{magic_at, version_at, size_at, reserved_at};
  for (std::size_t at = 0x018; at <= 0x0B0; at += width_at(at)) expected.push_back(at);
  append(expected, {algorithm_at, footstep_at, eq_sequence_at, eq_revision_at});
  append(expected, words_of_the_bands());
  append(expected, {eq_word_at, magic_at});
  std::vector<std::size_t> offsets = offsets_of(walk);
  ASSERT_EQ(offsets.size(), expected.size());
  // Among themselves the three words of the head may come in any order, and so may the bands.
  std::sort(offsets.begin() + 1, offsets.begin() + 4);
  std::sort(offsets.end() - 32, offsets.end() - 2);
  EXPECT_EQ(offsets, expected);
  EXPECT_EQ(walk.changes.front().value, 0u);
  EXPECT_EQ(walk.changes.back().value, record_magic);
  expect_whole_steps(walk);
  // A full barrier is between the last word and the magic.
  const int last_word = walk.changes[walk.changes.size() - 2].step;
  const int magic = walk.changes.back().step;
  EXPECT_TRUE(std::any_of(walk.full_barriers.begin(), walk.full_barriers.end(),
                          [&](int step) { return last_word < step && step < magic; }));
  // The reserved end is not touched.
  const RecordBytes bytes = record.bytes();
  EXPECT_TRUE(std::all_of(bytes.begin() + eq_bands_end, bytes.end(),
                          [](unsigned char byte) { return byte == foreign_byte; }));
}

// Settings of which every word differs from a new record's.
EqSettings other_settings() {
  EqSettings settings;
  settings.bypass = false;
  settings.fade_ms = 75.5f;
  for (std::size_t index = 0; index < eq_band_count; ++index) {
    settings.bands[index] = {3, 1000.0f + static_cast<float>(index), -4.5f, 1.25f};
  }
  return settings;
}

TEST(RecordSteps, TheEqualizerIsStoredBetweenAnOddAndAnEvenSequence) {
  const SharedRecord record;
  initialise_record(*record);
  const EqSettings settings = other_settings();
  const Walk walk = walk_through(record, [&] {
    publish_eq(*record, settings);
    return 0;
  });
  ASSERT_TRUE(walk.ended);

  std::vector<std::size_t> expected{eq_sequence_at};
  append(expected, words_of_the_bands());
  append(expected, {eq_word_at, eq_revision_at, eq_sequence_at});
  std::vector<std::size_t> offsets = offsets_of(walk);
  ASSERT_EQ(offsets.size(), expected.size());
  std::sort(offsets.begin() + 1, offsets.end() - 3);
  EXPECT_EQ(offsets, expected);
  EXPECT_EQ(walk.changes.front().value, 1u);
  EXPECT_EQ(walk.changes[walk.changes.size() - 2].value, 1u);
  EXPECT_EQ(walk.changes.back().value, 2u);
  expect_whole_steps(walk);
}

TEST(RecordSteps, EachOfTheOtherPublicationsChangesOneWordInOneStep) {
  const SharedRecord record;
  const struct {
    const char* title;
    std::size_t offset;
    std::uint64_t value;
    std::function<int()> work;
  } rows[] = {{"footstep", footstep_at, 0x000000033F800000,
               [&] { return static_cast<int>(publish_footstep(*record, true, true, 1.0f)); }},
              {"algorithm", algorithm_at, 0xFFF6FF88FF1C0001,
               [&] {
                 publish_algorithm(*record, {-1.0f, 1.0f, 1, false, -12.0f, 3, 0});
                 return 0;
               }},
              {"capture request", capture_request_at, 0x00000001012C0003, [&] {
                 publish_capture_request(*record, 3, 300);
                 return 0;
               }}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.title);
    initialise_record(*record);
    const Walk walk = walk_through(record, row.work);
    ASSERT_TRUE(walk.ended);
    EXPECT_EQ(walk.answer, 0);
    ASSERT_EQ(walk.changes.size(), 1u);
    EXPECT_EQ(walk.changes[0].offset, row.offset);
    EXPECT_EQ(walk.changes[0].value, row.value);
    EXPECT_TRUE(walk.changes[0].by_full_barrier);
  }
}

constexpr int reading_succeeded = 1;
constexpr int reading_failed = 2;

int read_once(const SharedRecord& record) {
  EqSettings out;
  return read_eq(*record, out) ? reading_succeeded : reading_failed;
}

TEST(RecordSteps, AnOddSequenceIsLookedAtFourTimesAndNoMore) {
  const SharedRecord record;
  initialise_record(*record);
  record->eq_sequence = 7;
  const Walk walk = walk_through(record, [&] { return read_once(record); });
  ASSERT_TRUE(walk.ended);
  EXPECT_EQ(walk.answer, reading_failed);
  EXPECT_EQ(walk.compare_exchanges, 4);
  EXPECT_TRUE(walk.changes.empty());
}

TEST(RecordSteps, AReadingThatIsOvertakenIsRepeatedUpToFourAttempts) {
  constexpr int words_of_an_attempt = 4;  // sequence, equalizer word, revision, sequence
  const struct {
    int overtaken;  // how many attempts are
    int answer;
    int attempts;
  } rows[] = {{0, reading_succeeded, 1},
              {1, reading_succeeded, 2},
              {3, reading_succeeded, 4},
              {4, reading_failed, 4}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.overtaken);
    const SharedRecord record;
    initialise_record(*record);
    const Walk walk = walk_through(
        record, [&] { return read_once(record); },
        [&](int number) {
          const int attempt = (number - 1) / words_of_an_attempt;
          const bool began = number % words_of_an_attempt == 1;
          if (began && attempt < row.overtaken) record->eq_sequence += 2;
        });
    ASSERT_TRUE(walk.ended);
    EXPECT_EQ(walk.answer, row.answer);
    EXPECT_EQ(walk.compare_exchanges, row.attempts * words_of_an_attempt);
    EXPECT_TRUE(walk.changes.empty());
  }
}

// The record as the first `count` changes of a walk leave it.
void replay(const Walk& walk, std::size_t count, ControlBridgeRecord& record) {
  for (std::size_t index = 0; index < count; ++index) {
    const Change& change = walk.changes[index];
    std::memcpy(reinterpret_cast<char*>(&record) + change.offset, &change.value, width_at(change.offset));
  }
}

EqSettings first_settings() {
  EqSettings settings;
  settings.bands.fill({5, 440.0f, 6.25f, 2.0f});
  return settings;
}

// What a reading came to; the child's answer.
enum Reading : int { read_first = 1, read_other = 2, read_none = 3, read_mixture = 4 };

Reading read_apart(ControlBridgeRecord& record) {
  EqSettings out;
  out.revision = 77;
  if (!read_eq(record, out)) return out.revision == 77 ? read_none : read_mixture;
  const auto is_those = [&](const EqSettings& settings, std::uint64_t revision) {
    return out.bypass == settings.bypass && out.fade_ms == settings.fade_ms && out.bands == settings.bands &&
           out.revision == revision;
  };
  if (is_those(first_settings(), 1)) return read_first;
  return is_those(other_settings(), 2) ? read_other : read_mixture;
}

// The steps of a second publication, on a record that holds the first one again afterwards.
Walk walk_through_second_publication(const SharedRecord& record) {
  initialise_record(*record);
  publish_eq(*record, first_settings());
  const ControlBridgeRecord before = *record;
  Walk walk = walk_through(record, [&record] {
    publish_eq(*record, other_settings());
    return 0;
  });
  *record = before;
  return walk;
}

TEST(RecordSteps, AnEqualizerIsReadWholeOrNotAtAllWhereverItsWriterHasStopped) {
  const SharedRecord record;
  const Walk walk = walk_through_second_publication(record);
  ASSERT_TRUE(walk.ended);
  ASSERT_EQ(walk.changes.size(), 34u);
  for (std::size_t count = 0; count <= walk.changes.size(); ++count) {
    ControlBridgeRecord stopped = *record;
    replay(walk, count, stopped);
    const Reading expected = count == 0 ? read_first : count == walk.changes.size() ? read_other : read_none;
    EXPECT_EQ(read_apart(stopped), expected) << count;
  }
}

TEST(RecordSteps, AReadingThatAWriterOvertakesAnywhereIsWholeOrNone) {
  constexpr int words_of_an_attempt = 4;  // the last look at the sequence ends it
  const SharedRecord record;
  const Walk writer = walk_through_second_publication(record);
  ASSERT_TRUE(writer.ended);
  const std::size_t all = writer.changes.size();
  const ControlBridgeRecord before = *record;
  for (int overtaken_at = 1; overtaken_at <= words_of_an_attempt; ++overtaken_at) {
    for (const std::size_t count :
         {std::size_t{1}, std::size_t{2}, all / 2, all - 3, all - 2, all - 1, all}) {
      SCOPED_TRACE(testing::Message() << count << " changes at " << overtaken_at);
      *record = before;
      const Walk walk = walk_through(
          record, [&record] { return static_cast<int>(read_apart(*record)); },
          [&](int number) {
            if (number == overtaken_at) replay(writer, count, *record);
          });
      ASSERT_TRUE(walk.ended);
      const bool was_over = overtaken_at == words_of_an_attempt;
      EXPECT_EQ(walk.answer, was_over ? read_first : count == all ? read_other : read_none);
    }
  }
}

TEST(RecordSteps, EachReportOfTheEffectStoresItsWordsInTheOrderOfItsContract) {
  const SharedRecord record;
  const struct {
    const char* title;
    std::function<void()> work;
    std::vector<std::pair<std::size_t, std::uint64_t>> stores;  // on a region that held C7 all over
  } rows[] = {
      {"initialize attempt",
       [&] {
         report_initialize_attempt(*record, {96, 97, 4, 1, true});
       },
       {{0x048, 0x0000006000000061},
        {0x050, 0x8000000400000001},
        {0x058, 0x000000018000000A},
        {0x040, 0xC7C7C7C8C7C7C7C7}}},
      {"initialize success", [&] { report_initialize_success(*record); }, {{0x018, 0xC7C7C7C7C7C7C7C8}}},
      {"initialize progress",
       [&] { report_initialize_progress(*record, 6, 0); },
       {{0x058, 0x0000000600000000}}},
      {"input negotiation",
       [&] { report_format_negotiation(*record, 9); },
       {{0x070, 0}, {0x078, 0}, {0x068, 0x000000098000000A}, {0x064, 0xC7C7C7C8}}},
      {"output negotiation",
       [&] { report_format_negotiation(*record, 10); },
       {{0x070, 0}, {0x078, 0}, {0x068, 0x0000000A8000000A}, {0x064, 0xC7C8C7C7}}},
      {"lock attempt",
       [&] { report_lock_attempt(*record); },
       {{0x070, 0}, {0x078, 0}, {0x068, 0x000000018000000A}, {0x060, 0xC7C7C7C8}}},
      {"input format",
       [&] {
         report_lock_input_format(*record, {48000, 2, 32, 4, 1});
       },
       {{0x070, 0x0000BB8001042002}}},
      {"output format",
       [&] {
         report_lock_output_format(*record, {48000, 2, 32, 4, 1});
       },
       {{0x078, 0x0000BB8001042002}}},
      {"lock progress", [&] { report_lock_progress(*record, 8, 0); }, {{0x068, 0x0000000800000000}}},
      {"lock success",
       [&] {
         report_lock_success(*record, {48000, 2, true, 2, 0});
       },
       {{0x028, 0x0000BB8000000002}, {0x030, 0x8000000200000000}, {0x020, 0xC7C7C7C7C7C7C7C8}}},
      {"applied", [&] { report_applied(*record, false, true, 0.5f); }, {{0x080, 0x800000023F000000}}},
      {"processing", [&] { report_processing(*record, 3.25f, 43); }, {{0x088, 0x8000002B40500000}}},
      {"a new mode", [&] { report_mode(*record, 3, ModeKind::locked); }, {{0x090, 0xC7C7C7C7C7CFC7C7}}},
      {"a known mode", [&] { report_mode(*record, 1, ModeKind::locked); }, {}},
      {"no mode", [&] { report_mode(*record, 16, ModeKind::initialized); }, {}},
      {"processed block", [&] { count_processed_block(*record); }, {{0x098, 0xC7C7C7C7C7C7C7C8}}},
      {"query", [&] { report_query(*record, 0, 1, 0); }, {{0x038, 0xC7C7C7C1C7C7C7C8}}},
      {"capture", [&] { report_capture(*record, 2, 120, 0); }, {{0x0B0, 0x8000000000780002}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.title);
    record.fill(foreign_byte);
    const Walk walk = walk_through(record, [&row] {
      row.work();
      return 0;
    });
    ASSERT_TRUE(walk.ended);
    std::vector<std::pair<std::size_t, std::uint64_t>> stores;
    for (const Change& change : walk.changes) stores.emplace_back(change.offset, change.value);
    EXPECT_EQ(stores, row.stores);
    expect_whole_steps(walk);
  }
}

TEST(RecordSteps, TheWordsOfTheEffectAreEachReadOnceAndNotChanged) {
  const SharedRecord record;
  record.fill(foreign_byte);
  const Walk walk = walk_through(record, [&record] {
    ControlDiagnostics read;
    read_diagnostics(*record, read);
    return 0;
  });
  ASSERT_TRUE(walk.ended);
  EXPECT_TRUE(walk.changes.empty());
  EXPECT_EQ(walk.compare_exchanges, 19);
}

TEST(RecordSteps, AReportThatAnotherOvertakesBeginsAnewFromWhatItFinds) {
  const struct {
    const char* title;
    std::size_t offset;
    std::uint64_t meanwhile;  // what the other one leaves behind the first look
    std::function<void(ControlBridgeRecord&)> work;
    int compare_exchanges;
    std::uint64_t at_the_end;
  } rows[] = {{"a query, by one of its own kind", 0x038, 0x0100000500000007,
               [](auto& record) { report_query(record, 0, 3, -1); }, 3, 0x0000000300000008},
              {"a query, by one of another kind", 0x038, 0x0200014000000100,
               [](auto& record) { report_query(record, 0, 3, 0); }, 3, 0x0300014300000101},
              {"a query, by nobody", 0x038, 0, [](auto& record) { report_query(record, 3, 5, 0); }, 2,
               0x0814000001000000},
              {"a query beyond the four", 0x038, 0x0123456789ABCDEF,
               [](auto& record) { report_query(record, 4, 5, 0); }, 3, 0x0123456789ABCDEF},
              {"a mode, by another", 0x090, 0x8001000000000000,
               [](auto& record) { report_mode(record, 6, ModeKind::initialized); }, 3, 0x8001000000000040},
              {"a mode, by the same", 0x090, 0x0000000000000041,
               [](auto& record) { report_mode(record, 6, ModeKind::initialized); }, 2, 0x0000000000000041},
              {"a mode, by nobody", 0x090, 0,
               [](auto& record) { report_mode(record, 2, ModeKind::processed); }, 2, 0x0000000400000000}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.title);
    const SharedRecord record;
    const Walk walk = walk_through(
        record,
        [&] {
          row.work(*record);
          return 0;
        },
        [&](int number) {
          if (number != 1) return;
          std::memcpy(reinterpret_cast<char*>(&*record) + row.offset, &row.meanwhile, sizeof row.meanwhile);
        });
    ASSERT_TRUE(walk.ended);
    EXPECT_EQ(walk.compare_exchanges, row.compare_exchanges);
    const RecordBytes bytes = record.bytes();
    std::uint64_t word = 0;
    std::memcpy(&word, &bytes[row.offset], sizeof word);
    EXPECT_EQ(word, row.at_the_end);
  }
}

}  // namespace
}  // namespace velmora
