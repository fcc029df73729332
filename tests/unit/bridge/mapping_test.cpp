// One file because it mirrors one source: the name, the wait for another creator, and the owner of a mapping.
#include "bridge/mapping.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <utility>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

const std::u16string name = u"Local\\bridge";
const std::string name_refused =
    "control mapping name must be Local\\ or Global\\ plus ASCII letters, digits, '.', '-' or '_'";
const std::string incompatible = "existing control mapping has an incompatible layout";
const std::string opened = "opened shared control bridge";
const std::string created = "created shared control bridge";

// Another process holds a finished record of this magic, version and size.
std::shared_ptr<memory::Region> hold_record(std::uint32_t magic = 0x31434D56, std::uint32_t version = 8,
                                            std::uint32_t size = 576) {
  auto region = memory::hold_region(name, 576);
  for (std::size_t index = 0; index < region->words.size(); ++index)
    region->words[index] = 0x0101010101010101u * index;
  region->words[0] = (std::uint64_t{version} << 32) | magic;
  region->words[1] = size;
  return region;
}

FootstepParameters footstep_of(ControlBridge& bridge) {
  FootstepParameters footstep{};
  EXPECT_TRUE(bridge.read_footstep(footstep));
  return footstep;
}

TEST(MappingName, NeedsAPrefixAndAllowedCharacters) {
  for (const std::u16string valid :
       {u"Local\\x", u"Global\\x", u"Global\\VelmoraControlV1", u"Local\\a.b-c_d9Z", u"Local\\.",
        u"Global\\-", u"Local\\Local", u"Local\\VelmoraSelfTest-4711"}) {
    EXPECT_TRUE(control_mapping_name_valid(valid));
  }
  for (const std::u16string refused : {u"",
                                       u"Local",
                                       u"Global",
                                       u"Local\\",
                                       u"Global\\",
                                       u"local\\x",
                                       u"GLOBAL\\x",
                                       u"LOCAL\\x",
                                       u"Local/x",
                                       u"x",
                                       u"Global\\a b",
                                       u"Global\\a/b",
                                       u"Local\\a\\b",
                                       u"Local\\\\",
                                       u"Local\\\x00E9",
                                       u"Local\\\xFFE9",
                                       u" Local\\x",
                                       u"Local\\x ",
                                       u"Session\\x",
                                       u"Local\\x\n",
                                       u"Local\\Global\\x",
                                       u"Local\\\x0141"}) {
    EXPECT_FALSE(control_mapping_name_valid(refused));
  }
}

TEST(MappingName, AllowsExactly65Characters) {
  std::u16string allowed;
  for (char32_t unit = 0; unit < 0x10000; ++unit) {
    const std::u16string tried(1, static_cast<char16_t>(unit));
    if (control_mapping_name_valid(u"Local\\" + tried)) allowed += tried;
  }
  EXPECT_EQ(allowed, u"-.0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz");
}

TEST(MappingName, HasUpTo240CharactersWithItsPrefix) {
  for (const std::u16string prefix : {u"Local\\", u"Global\\"}) {
    EXPECT_TRUE(control_mapping_name_valid(prefix + std::u16string(240 - prefix.size(), u'a')));
    EXPECT_FALSE(control_mapping_name_valid(prefix + std::u16string(241 - prefix.size(), u'a')));
  }
}

using WaitForCreator = FreshMachine;

// Another process finishes the record in the given round of 1 ms; 0: before the wait.
TEST_F(WaitForCreator, Takes100RoundsAtMost) {
  const struct {
    std::uint64_t round;
    std::uint32_t magic, version, size;
    bool result;
    std::uint64_t sleeps;
  } rows[] = {{0, record_magic, 8, 576, true, 0},
              {0, record_magic, 7, 576, false, 0},
              {0, record_magic, 8, 575, false, 0},
              {1, record_magic, 8, 576, true, 1},
              {2, record_magic, 8, 576, true, 2},
              {50, record_magic, 8, 576, true, 50},
              {99, record_magic, 8, 576, true, 99},
              {3, record_magic, 9, 576, false, 3},
              {0, 0, 8, 576, false, 100},
              {0, 0x12345678, 8, 576, false, 100},
              {101, record_magic, 8, 576, false, 100}};
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    memory::reset();
    ControlBridgeRecord record{};
    const auto finish = [&] {
      if (memory::system().sleeps != row.round) return;
      initialise_record(record);
      record.magic = row.magic;
      record.version = row.version;
      record.size = row.size;
    };
    finish();
    memory::system().on_sleep = finish;
    const std::int64_t start_ns = memory::system().now_ns;
    EXPECT_EQ(wait_for_creator(record), row.result);
    EXPECT_EQ(memory::system().sleeps, row.sleeps);
    EXPECT_EQ(memory::system().now_ns - start_ns, static_cast<std::int64_t>(row.sleeps) * 1'000'000);
  }
}

class BridgeMapping : public FreshMachine {
 protected:
  // create() or open(), and the message.
  bool start(bool may_create, const std::u16string& of = name) {
    message_ = "left over";
    return may_create ? bridge_.create(of, message_) : bridge_.open(of, message_);
  }
  void expect_closed() const {
    EXPECT_FALSE(bridge_.is_open());
    EXPECT_EQ(bridge_.name(), u"");
    EXPECT_TRUE(memory::system().handles.empty());
  }
  void TearDown() override {
    bridge_.close();
    FreshMachine::TearDown();
  }

  ControlBridge bridge_;
  std::string message_;
};

TEST_F(BridgeMapping, CreatesAndFillsANewMapping) {
  expect_closed();
  ASSERT_TRUE(start(true));
  EXPECT_EQ(message_, created);
  EXPECT_TRUE(bridge_.is_open());
  EXPECT_EQ(bridge_.name(), name);
  EXPECT_EQ(footstep_of(bridge_).raw, 0x0000000100000000u);
  EXPECT_EQ(memory::system().sleeps, 0u);
  EXPECT_EQ(memory::system().regions.at(name).lock()->size, 576u);
}

TEST_F(BridgeMapping, KeepsValuesWhileAnyoneHoldsIt) {
  for (const bool held : {false, true}) {
    ASSERT_TRUE(start(true));
    EXPECT_EQ(message_, created);
    const auto region = held ? memory::system().regions.at(name).lock() : nullptr;
    ASSERT_EQ(bridge_.publish_footstep(false, true, 0.5f), BridgeResult::done);
    bridge_.close();
    expect_closed();
    ASSERT_TRUE(start(true));
    EXPECT_EQ(message_, held ? opened : created);
    EXPECT_EQ(footstep_of(bridge_).raw, held ? 0x000000023F000000u : 0x0000000100000000u);
    bridge_.close();
  }
}

TEST_F(BridgeMapping, OpensAnExistingRecordUnchanged) {
  for (const bool may_create : {true, false}) {
    const auto region = hold_record();
    const std::vector<std::uint64_t> before = region->words;
    ASSERT_TRUE(start(may_create));
    EXPECT_EQ(message_, opened);
    bridge_.close();
    ASSERT_EQ(before.size() * 8, 576u);
    EXPECT_EQ(region->words, before);
  }
}

TEST_F(BridgeMapping, NeverCreatesByOpen) {
  EXPECT_FALSE(start(false));
  EXPECT_EQ(message_, "OpenFileMappingW failed with error 2");
  expect_closed();
  EXPECT_TRUE(memory::system().regions.empty());
}

TEST_F(BridgeMapping, CreatesWhateverErrorOpeningReturned) {
  memory::system().faults["OpenFileMappingW"] = {5};
  EXPECT_TRUE(start(true));
  EXPECT_EQ(message_, created);
}

// Another process creates the mapping after this one failed to open it.
TEST_F(BridgeMapping, OpensAMappingCreatedMeanwhile) {
  memory::system().faults["OpenFileMappingW"] = {2};
  const auto finished = hold_record();
  const std::vector<std::uint64_t> before = finished->words;
  ASSERT_TRUE(start(true));
  EXPECT_EQ(message_, opened);
  EXPECT_EQ(finished->words, before);
  bridge_.close();

  memory::system().faults["OpenFileMappingW"] = {2};
  const auto region = memory::hold_region(name, 576);
  memory::system().on_sleep = [&] {
    if (memory::system().sleeps == 7) {
      initialise_record(*reinterpret_cast<ControlBridgeRecord*>(region->words.data()));
    }
  };
  ASSERT_TRUE(start(true));
  EXPECT_EQ(message_, opened);
  EXPECT_EQ(memory::system().sleeps, 7u);
}

TEST_F(BridgeMapping, RefusesAnIncompatibleRecord) {
  const struct {
    std::uint32_t magic, version, size;
    std::uint64_t sleeps;
  } rows[] = {
      {0x31434D56, 7, 576, 0},         {0x31434D56, 9, 576, 0}, {0x31434D56, 8, 575, 0},
      {0x31434D56, 8, 65536 + 576, 0}, {0, 8, 576, 100},        {0x31434D57, 8, 576, 100},
  };
  for (const auto& row : rows) {
    for (const bool may_create : {true, false}) {
      SCOPED_TRACE(&row - rows);
      memory::reset();
      const auto region = hold_record(row.magic, row.version, row.size);
      const std::vector<std::uint64_t> before = region->words;
      EXPECT_FALSE(start(may_create));
      EXPECT_EQ(message_, incompatible);
      expect_closed();
      EXPECT_EQ(memory::system().sleeps, row.sleeps);
      EXPECT_EQ(region->words, before);
      EXPECT_EQ(calls_of("UnmapViewOfFile"), 1);
    }
  }
}

TEST_F(BridgeMapping, ReportsTheCallThatFailed) {
  constexpr std::int64_t no_number = memory::failure_without_number;
  const std::string descriptor = "ConvertStringSecurityDescriptorToSecurityDescriptorW";
  const std::string no_descriptor = "unable to create the control mapping security descriptor: ";
  const struct {
    bool may_create;
    std::string operation;
    std::int64_t error;
    std::string message;
  } rows[] = {
      {true, descriptor, 1336, no_descriptor + "1336"},
      {true, descriptor, no_number, no_descriptor + "0"},
      {true, "CreateFileMappingW", 5, "CreateFileMappingW failed with error 5"},
      {true, "CreateFileMappingW", no_number, "CreateFileMappingW failed with error 0"},
      {true, "MapViewOfFile", 8, "MapViewOfFile failed with error 8"},
      {true, "MapViewOfFile", no_number, "MapViewOfFile failed with error 0"},
      {false, "OpenFileMappingW", 5, "OpenFileMappingW failed with error 5"},
      {false, "OpenFileMappingW", no_number, "OpenFileMappingW failed with error 0"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    memory::reset();
    memory::system().faults[row.operation] = {row.error};
    EXPECT_FALSE(start(row.may_create));
    EXPECT_EQ(message_, row.message);
    expect_closed();
    EXPECT_EQ(calls_of(row.operation), 1);
  }
  const auto region = memory::hold_region(name, 575);  // too small for a record
  EXPECT_FALSE(start(true));
  EXPECT_EQ(message_, "MapViewOfFile failed with error 5");
  expect_closed();
}

TEST_F(BridgeMapping, MakesNoCallForABadName) {
  for (const bool may_create : {true, false}) {
    EXPECT_FALSE(start(may_create, u"Global\\a b"));
    EXPECT_EQ(message_, name_refused);
    EXPECT_TRUE(memory::system().log.empty());
  }
}

TEST_F(BridgeMapping, SharesValuesBetweenTwoBridges) {
  ControlBridge service;
  ControlBridge effect;
  std::string message;
  ASSERT_TRUE(service.create(name, message));
  ASSERT_TRUE(effect.open(name, message));
  EXPECT_EQ(message, opened);
  EXPECT_EQ(service.publish_footstep(false, false, 0.625f), BridgeResult::done);
  EXPECT_EQ(footstep_of(effect).enhance_strength, 0.625f);
  EXPECT_EQ(service.publish_algorithm({-20.0f, 0.0f, 0, false, -12.0f, 2, 0}), BridgeResult::done);
  AlgorithmParameters algorithm;
  EXPECT_TRUE(effect.read_algorithm(algorithm));
  EXPECT_EQ(algorithm.stereo_link, 2);
  EqSettings settings;
  settings.bands[4].gain_db = 3.5f;
  EXPECT_EQ(service.publish_eq(settings), BridgeResult::done);
  EqSettings read;
  EXPECT_TRUE(effect.read_eq(read));
  EXPECT_EQ(read.bands[4].gain_db, 3.5f);
  EXPECT_EQ(read.revision, 1u);
  EXPECT_EQ(service.publish_capture_request(2, 30), BridgeResult::done);
  CaptureRequest capture{};
  EXPECT_TRUE(effect.read_capture_request(capture));
  EXPECT_EQ(capture.sequence, 1u);
  EXPECT_EQ(capture.action, 2u);
  EXPECT_EQ(capture.seconds, 30u);
}

TEST_F(BridgeMapping, RefusesAStrengthOutOfRange) {
  ASSERT_TRUE(start(true));
  EXPECT_EQ(bridge_.publish_footstep(false, false, 1.5f), BridgeResult::value_refused);
  EXPECT_EQ(footstep_of(bridge_).raw, 0x0000000100000000u);
}

TEST_F(BridgeMapping, LeavesOutputsWhenClosed) {
  EXPECT_EQ(bridge_.publish_footstep(false, false, 0.5f), BridgeResult::not_open);
  EXPECT_EQ(bridge_.publish_footstep(false, false, 7.0f), BridgeResult::not_open);
  EXPECT_EQ(bridge_.publish_algorithm({}), BridgeResult::not_open);
  EXPECT_EQ(bridge_.publish_eq({}), BridgeResult::not_open);
  EXPECT_EQ(bridge_.publish_capture_request(1, 1), BridgeResult::not_open);
  FootstepParameters footstep{true, true, 0.25f, 77};
  EXPECT_FALSE(bridge_.read_footstep(footstep));
  EXPECT_EQ(footstep.raw, 77u);
  AlgorithmParameters algorithm;
  algorithm.raw = 77;
  EXPECT_FALSE(bridge_.read_algorithm(algorithm));
  EXPECT_EQ(algorithm.raw, 77u);
  EqSettings settings;
  settings.revision = 77;
  EXPECT_FALSE(bridge_.read_eq(settings));
  EXPECT_EQ(settings.revision, 77u);
  CaptureRequest capture{77, 77, 77};
  EXPECT_FALSE(bridge_.read_capture_request(capture));
  EXPECT_EQ(capture.sequence, 77u);
}

// Each report of the effect through a bridge, and on a record.
struct Report {
  const char* title;
  std::function<void(ControlBridge&)> through_bridge;
  std::function<void(ControlBridgeRecord&)> on_record;
};

const std::vector<Report>& reports() {
  static const InitializeAttempt attempt{96, 97, 4, 1, true};
  static const StreamFormat format{48000, 2, 32, 4, 1};
  static const LockedStream stream{44100, 6, true, 2, 0x80004005};
  static const std::vector<Report> all{
      {"initialize attempt", [](auto& bridge) { bridge.report_initialize_attempt(attempt); },
       [](auto& record) { report_initialize_attempt(record, attempt); }},
      {"initialize success", [](auto& bridge) { bridge.report_initialize_success(); },
       [](auto& record) { report_initialize_success(record); }},
      {"initialize progress", [](auto& bridge) { bridge.report_initialize_progress(6, 7); },
       [](auto& record) { report_initialize_progress(record, 6, 7); }},
      {"input negotiation", [](auto& bridge) { bridge.report_format_negotiation(9); },
       [](auto& record) { report_format_negotiation(record, 9); }},
      {"output negotiation", [](auto& bridge) { bridge.report_format_negotiation(10); },
       [](auto& record) { report_format_negotiation(record, 10); }},
      {"lock attempt", [](auto& bridge) { bridge.report_lock_attempt(); },
       [](auto& record) { report_lock_attempt(record); }},
      {"input format", [](auto& bridge) { bridge.report_lock_input_format(format); },
       [](auto& record) { report_lock_input_format(record, format); }},
      {"output format", [](auto& bridge) { bridge.report_lock_output_format(format); },
       [](auto& record) { report_lock_output_format(record, format); }},
      {"lock progress", [](auto& bridge) { bridge.report_lock_progress(8, 9); },
       [](auto& record) { report_lock_progress(record, 8, 9); }},
      {"lock success", [](auto& bridge) { bridge.report_lock_success(stream); },
       [](auto& record) { report_lock_success(record, stream); }},
      {"applied", [](auto& bridge) { bridge.report_applied(false, true, 0.5f); },
       [](auto& record) { report_applied(record, false, true, 0.5f); }},
      {"processing", [](auto& bridge) { bridge.report_processing(3.25f, 43); },
       [](auto& record) { report_processing(record, 3.25f, 43); }},
      {"mode", [](auto& bridge) { bridge.report_mode(6, ModeKind::locked); },
       [](auto& record) { report_mode(record, 6, ModeKind::locked); }},
      {"processed block", [](auto& bridge) { bridge.count_processed_block(); },
       [](auto& record) { count_processed_block(record); }},
      {"query", [](auto& bridge) { bridge.report_query(3, 5, 0); },
       [](auto& record) { report_query(record, 3, 5, 0); }},
      {"failed query", [](auto& bridge) { bridge.report_query(1, 5, -1); },
       [](auto& record) { report_query(record, 1, 5, -1); }},
      {"capture", [](auto& bridge) { bridge.report_capture(2, 120, 3); },
       [](auto& record) { report_capture(record, 2, 120, 3); }},
  };
  return all;
}

TEST_F(BridgeMapping, WritesEachReportWithoutACall) {
  for (const Report& report : reports()) {
    SCOPED_TRACE(report.title);
    const auto region = hold_record();
    ControlBridgeRecord expected;
    std::memcpy(&expected, region->words.data(), sizeof expected);
    ASSERT_TRUE(start(false));
    memory::system().log.clear();
    report.through_bridge(bridge_);
    EXPECT_TRUE(memory::system().log.empty());
    const ControlBridgeRecord untouched = expected;
    report.on_record(expected);
    EXPECT_NE(std::memcmp(&expected, &untouched, sizeof expected), 0);
    EXPECT_EQ(std::memcmp(&expected, region->words.data(), sizeof expected), 0);
    bridge_.close();
  }
}

TEST_F(BridgeMapping, ReadsReportsOfAnotherBridge) {
  ControlBridge service;
  ControlBridge effect;
  std::string message;
  ASSERT_TRUE(service.create(name, message));
  ASSERT_TRUE(effect.open(name, message));
  ControlDiagnostics read;
  ASSERT_TRUE(service.read_diagnostics(read));
  EXPECT_FALSE(read.applied_bypass);
  EXPECT_EQ(read.lock_count, 0u);
  for (const Report& report : reports()) report.through_bridge(effect);
  ASSERT_TRUE(service.read_diagnostics(read));
  EXPECT_EQ(read.initialize_discovery_count, 1u);
  EXPECT_EQ(read.lock_count, 1u);
  EXPECT_EQ(read.lock_output_sample_rate, 48000u);
  EXPECT_EQ(read.sample_rate, 44100u);
  EXPECT_EQ(read.applied_strength, 0.5f);
  EXPECT_EQ(read.last_input_channel_count, 5u);
  EXPECT_EQ(read.capture_seconds, 120u);
  EXPECT_EQ(read.locked_mode_mask, 64u);
}

TEST_F(BridgeMapping, DropsReportsWhenClosed) {
  for (const Report& report : reports()) report.through_bridge(bridge_);
  EXPECT_TRUE(memory::system().log.empty());
  expect_closed();
  // Also when it was open before.
  const auto region = hold_record();
  ASSERT_TRUE(start(false));
  bridge_.close();
  const std::vector<std::uint64_t> before = region->words;
  for (const Report& report : reports()) report.through_bridge(bridge_);
  EXPECT_EQ(region->words, before);
}

TEST_F(BridgeMapping, LeavesDiagnosticsWhenClosed) {
  ControlDiagnostics read;
  std::memset(static_cast<void*>(&read), 0x55, sizeof read);
  ControlDiagnostics before;
  std::memcpy(static_cast<void*>(&before), &read, sizeof read);
  EXPECT_FALSE(bridge_.read_diagnostics(read));
  EXPECT_EQ(std::memcmp(&read, &before, sizeof read), 0);
}

TEST_F(BridgeMapping, ReleasesItsHandlesOnce) {
  ASSERT_TRUE(start(true));
  bridge_.close();
  bridge_.close();
  expect_closed();
  EXPECT_EQ(calls_of("UnmapViewOfFile"), 1);
  EXPECT_EQ(calls_of("CloseHandle"), 1);
  {
    ControlBridge bridge;
    ASSERT_TRUE(bridge.create(name, message_));
  }
  EXPECT_TRUE(memory::system().handles.empty());
}

TEST_F(BridgeMapping, ClosesBeforeAnAttemptThatFails) {
  for (const std::u16string bad_name : {u"nonsense", u"Local\\missing", u"local\\x"}) {
    ASSERT_TRUE(start(true));
    EXPECT_FALSE(start(bad_name == u"local\\x", bad_name));
    EXPECT_EQ(message_ == name_refused, bad_name != u"Local\\missing");
    expect_closed();
  }
}

TEST_F(BridgeMapping, CanBeCreatedAgainUnderItsOwnName) {
  ASSERT_TRUE(start(true));
  ASSERT_TRUE(bridge_.create(bridge_.name(), message_));
  EXPECT_EQ(message_, created);
  EXPECT_EQ(bridge_.name(), name);
  EXPECT_EQ(memory::system().handles.size(), 2u);
}

TEST_F(BridgeMapping, MovesWithItsOwner) {
  ASSERT_TRUE(start(true));
  ASSERT_EQ(bridge_.publish_footstep(false, true, 0.5f), BridgeResult::done);
  ControlBridge second(std::move(bridge_));
  EXPECT_FALSE(bridge_.is_open());  // NOLINT: the state after a move is the contract
  EXPECT_EQ(bridge_.name(), u"");
  EXPECT_EQ(bridge_.publish_footstep(false, false, 0.5f), BridgeResult::not_open);
  EXPECT_EQ(second.name(), name);
  EXPECT_EQ(footstep_of(second).raw, 0x000000023F000000u);

  ControlBridge third;
  ASSERT_TRUE(third.create(u"Local\\other", message_));
  third = std::move(second);
  EXPECT_FALSE(second.is_open());  // NOLINT: the state after a move is the contract
  EXPECT_EQ(second.name(), u"");
  EXPECT_TRUE(third.is_open());
  EXPECT_EQ(third.name(), name);
  EXPECT_EQ(memory::system().handles.size(), 2u);
  EXPECT_TRUE(memory::system().regions.at(u"Local\\other").expired());

  ControlBridge& same = third;
  third = std::move(same);
  EXPECT_TRUE(third.is_open());
  EXPECT_EQ(third.name(), name);
}

TEST_F(BridgeMapping, MakesNoCallOnceItIsOpen) {
  ASSERT_TRUE(start(true));
  memory::system().log.clear();
  static_cast<void>(bridge_.publish_footstep(false, false, 0.5f));
  static_cast<void>(bridge_.publish_algorithm({}));
  static_cast<void>(bridge_.publish_eq({}));
  EqSettings settings;
  static_cast<void>(bridge_.read_eq(settings));
  ControlDiagnostics diagnostics;
  static_cast<void>(bridge_.read_diagnostics(diagnostics));
  EXPECT_TRUE(memory::system().log.empty());
}

}  // namespace
}  // namespace velmora
