// One file because it mirrors one source: the name, the making and opening, and the owner of both.
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

using Log = std::vector<std::string>;

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

TEST(MappingName, IsAPrefixAndAtLeastOneAllowedUnit) {
  for (const std::u16string valid :
       {u"Local\\x", u"Global\\x", u"Global\\VelmoraControlV1", u"Local\\a.b-c_d9Z", u"Local\\.",
        u"Global\\-", u"Local\\Local", u"Local\\VelmoraSelfTest-4711"}) {
    EXPECT_TRUE(control_mapping_name_valid(valid));
  }
}

TEST(MappingName, IsNothingElse) {
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

TEST(MappingName, AllowsExactly65UnitsBehindItsPrefix) {
  int allowed = 0;
  for (char32_t unit = 0; unit < 0x10000; ++unit) {
    const std::u16string tried = u"Local\\" + std::u16string(1, static_cast<char16_t>(unit));
    if (!control_mapping_name_valid(tried)) continue;
    ++allowed;
    EXPECT_NE(std::u16string_view(u"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_")
                  .find(static_cast<char16_t>(unit)),
              std::u16string_view::npos);
  }
  EXPECT_EQ(allowed, 65);
}

TEST(MappingName, Has240UnitsAtMostPrefixIncluded) {
  for (const std::u16string prefix : {u"Local\\", u"Global\\"}) {
    EXPECT_TRUE(control_mapping_name_valid(prefix + std::u16string(240 - prefix.size(), u'a')));
    EXPECT_FALSE(control_mapping_name_valid(prefix + std::u16string(241 - prefix.size(), u'a')));
  }
}

using Waiting = FreshMachine;

TEST_F(Waiting, TakesAFinishedRecordWithoutASleep) {
  ControlBridgeRecord record{};
  initialise_record(record);
  EXPECT_TRUE(wait_for_creator(record));
  EXPECT_EQ(memory::system().sleeps, 0u);
}

TEST_F(Waiting, RefusesAnotherLayoutWithoutASleep) {
  ControlBridgeRecord record{};
  initialise_record(record);
  record.version = 7;
  EXPECT_FALSE(wait_for_creator(record));
  record.version = 8;
  record.size = 575;
  EXPECT_FALSE(wait_for_creator(record));
  EXPECT_EQ(memory::system().sleeps, 0u);
}

TEST_F(Waiting, GivesUpAfter100RoundsOf1Millisecond) {
  for (const std::uint32_t magic : {0u, 0x12345678u}) {
    memory::reset();
    ControlBridgeRecord record{};
    initialise_record(record);
    record.magic = magic;
    const std::int64_t start_ns = memory::system().now_ns;
    EXPECT_FALSE(wait_for_creator(record));
    EXPECT_EQ(memory::system().sleeps, 100u);
    EXPECT_EQ(memory::system().now_ns - start_ns, 100'000'000);
  }
}

TEST_F(Waiting, TakesARecordThatIsFinishedInAnyOfItsRounds) {
  for (const std::uint64_t finished_after : {1u, 2u, 50u, 99u}) {
    memory::reset();
    ControlBridgeRecord record{};
    memory::system().on_sleep = [&] {
      if (memory::system().sleeps == finished_after) initialise_record(record);
    };
    EXPECT_TRUE(wait_for_creator(record));
    EXPECT_EQ(memory::system().sleeps, finished_after);
  }
}

TEST_F(Waiting, EndsAtOnceWhenTheCreatorTurnsOutToBeOfAnotherLayout) {
  ControlBridgeRecord record{};
  memory::system().on_sleep = [&] {
    if (memory::system().sleeps != 3) return;
    record.version = 9;
    record.size = 576;
    record.magic = record_magic;
  };
  EXPECT_FALSE(wait_for_creator(record));
  EXPECT_EQ(memory::system().sleeps, 3u);
}

using BridgeMapping = FreshMachine;

TEST_F(BridgeMapping, IsMadeAndFilledWhereThereIsNone) {
  ControlBridge bridge;
  std::string message;
  EXPECT_FALSE(bridge.is_open());
  EXPECT_EQ(bridge.name(), u"");
  ASSERT_TRUE(bridge.create(name, message));
  EXPECT_EQ(message, created);
  EXPECT_TRUE(bridge.is_open());
  EXPECT_EQ(bridge.name(), name);
  EXPECT_EQ(footstep_of(bridge).raw, 0x0000000100000000u);
  EXPECT_EQ(memory::system().sleeps, 0u);
  EXPECT_EQ(memory::system().log,
            (Log{"OpenFileMappingW", "ConvertStringSecurityDescriptorToSecurityDescriptorW",
                 "CreateFileMappingW", "MapViewOfFile"}));
  const auto region = memory::system().regions.at(name).lock();
  EXPECT_EQ(region->size, 576u);
}

TEST_F(BridgeMapping, IsMadeAnewWhereNobodyHoldsItAnyLonger) {
  std::string message;
  ControlBridge bridge;
  ASSERT_TRUE(bridge.create(name, message));
  ASSERT_EQ(bridge.publish_footstep(false, true, 0.5f), BridgeResult::done);
  bridge.close();
  EXPECT_TRUE(memory::system().handles.empty());
  ASSERT_TRUE(bridge.create(name, message));
  EXPECT_EQ(message, created);
  EXPECT_EQ(footstep_of(bridge).raw, 0x0000000100000000u);
}

TEST_F(BridgeMapping, KeepsItsValuesForAsLongAsAnyoneHoldsIt) {
  std::string message;
  ControlBridge bridge;
  ASSERT_TRUE(bridge.create(name, message));
  const auto held = memory::system().regions.at(name).lock();
  ASSERT_EQ(bridge.publish_footstep(false, true, 0.5f), BridgeResult::done);
  bridge.close();
  ASSERT_TRUE(bridge.create(name, message));
  EXPECT_EQ(message, opened);
  EXPECT_EQ(footstep_of(bridge).raw, 0x000000023F000000u);
}

TEST_F(BridgeMapping, IsTakenAsItStandsWhereItExists) {
  for (const bool may_create : {true, false}) {
    memory::reset();
    const auto region = hold_record();
    const std::vector<std::uint64_t> before = region->words;
    {
      ControlBridge bridge;
      std::string message;
      ASSERT_TRUE(may_create ? bridge.create(name, message) : bridge.open(name, message));
      EXPECT_EQ(message, opened);
      EXPECT_EQ(memory::system().log, (Log{"OpenFileMappingW", "MapViewOfFile"}));
    }
    ASSERT_EQ(before.size() * 8, 576u);
    EXPECT_EQ(std::memcmp(before.data(), region->words.data(), 576), 0);
  }
}

TEST_F(BridgeMapping, IsNeverMadeByOpen) {
  ControlBridge bridge;
  std::string message;
  EXPECT_FALSE(bridge.open(name, message));
  EXPECT_EQ(message, "OpenFileMappingW failed with error 2");
  EXPECT_FALSE(bridge.is_open());
  EXPECT_EQ(memory::system().log, Log{"OpenFileMappingW"});
  EXPECT_TRUE(memory::system().regions.empty());
}

TEST_F(BridgeMapping, TriesToMakeItWhateverTheReasonThatItCouldNotBeOpened) {
  memory::system().faults["OpenFileMappingW"] = {5};
  ControlBridge bridge;
  std::string message;
  EXPECT_TRUE(bridge.create(name, message));
  EXPECT_EQ(message, created);
}

TEST_F(BridgeMapping, IsOpenedLikeAnyOtherWhenAnotherProcessWasFaster) {
  // It is there between our look and our making.
  memory::system().faults["OpenFileMappingW"] = {2};
  const auto region = hold_record();
  const std::vector<std::uint64_t> before = region->words;
  ControlBridge bridge;
  std::string message;
  ASSERT_TRUE(bridge.create(name, message));
  EXPECT_EQ(message, opened);
  EXPECT_EQ(region->words, before);
}

TEST_F(BridgeMapping, WaitsForTheOtherProcessThatWasFaster) {
  memory::system().faults["OpenFileMappingW"] = {2};
  const auto region = memory::hold_region(name, 576);
  memory::system().on_sleep = [&] {
    if (memory::system().sleeps == 7) {
      initialise_record(*reinterpret_cast<ControlBridgeRecord*>(region->words.data()));
    }
  };
  ControlBridge bridge;
  std::string message;
  ASSERT_TRUE(bridge.create(name, message));
  EXPECT_EQ(message, opened);
  EXPECT_EQ(memory::system().sleeps, 7u);
}

TEST_F(BridgeMapping, IsRefusedWhereItsRecordCannotBeUsed) {
  const struct {
    std::uint32_t magic, version, size;
    std::uint64_t sleeps;
  } rows[] = {
      {0x31434D56, 7, 576, 0},         {0x31434D56, 9, 576, 0}, {0x31434D56, 8, 575, 0},
      {0x31434D56, 8, 65536 + 576, 0}, {0, 8, 576, 100},        {0x31434D57, 8, 576, 100},
  };
  for (const auto& row : rows) {
    for (const bool may_create : {true, false}) {
      SCOPED_TRACE(std::to_string(row.magic) + " " + std::to_string(row.version) + " " +
                   std::to_string(row.size));
      memory::reset();
      const auto region = hold_record(row.magic, row.version, row.size);
      const std::vector<std::uint64_t> before = region->words;
      ControlBridge bridge;
      std::string message;
      EXPECT_FALSE(may_create ? bridge.create(name, message) : bridge.open(name, message));
      EXPECT_EQ(message, incompatible);
      EXPECT_FALSE(bridge.is_open());
      EXPECT_EQ(bridge.name(), u"");
      EXPECT_EQ(memory::system().sleeps, row.sleeps);
      EXPECT_EQ(region->words, before);
      EXPECT_EQ(memory::system().log,
                (Log{"OpenFileMappingW", "MapViewOfFile", "UnmapViewOfFile", "CloseHandle"}));
      EXPECT_TRUE(memory::system().handles.empty());
    }
  }
}

TEST_F(BridgeMapping, TellsWhichCallFailedAndHoldsNothing) {
  const struct {
    std::string operation;
    std::int64_t error;
    std::string message;
  } rows[] = {
      {"ConvertStringSecurityDescriptorToSecurityDescriptorW", 1336,
       "unable to create the control mapping security descriptor: 1336"},
      {"CreateFileMappingW", 5, "CreateFileMappingW failed with error 5"},
      {"MapViewOfFile", 8, "MapViewOfFile failed with error 8"},
      {"ConvertStringSecurityDescriptorToSecurityDescriptorW", memory::failure_without_number,
       "unable to create the control mapping security descriptor: 0"},
      {"CreateFileMappingW", memory::failure_without_number, "CreateFileMappingW failed with error 0"},
      {"MapViewOfFile", memory::failure_without_number, "MapViewOfFile failed with error 0"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    memory::reset();
    memory::system().faults[row.operation] = {row.error};
    ControlBridge bridge;
    std::string message = "what it held";
    EXPECT_FALSE(bridge.create(name, message));
    EXPECT_EQ(message, row.message);
    EXPECT_FALSE(bridge.is_open());
    EXPECT_TRUE(memory::system().handles.empty());
    EXPECT_EQ(calls_of(row.operation), 1);
  }
}

TEST_F(BridgeMapping, TellsTheErrorOfAnOpenThatWasDenied) {
  const auto region = hold_record();
  memory::system().faults["OpenFileMappingW"] = {5};
  ControlBridge bridge;
  std::string message;
  EXPECT_FALSE(bridge.open(name, message));
  EXPECT_EQ(message, "OpenFileMappingW failed with error 5");
  memory::system().faults["OpenFileMappingW"] = {memory::failure_without_number};
  EXPECT_FALSE(bridge.open(name, message));
  EXPECT_EQ(message, "OpenFileMappingW failed with error 0");
}

TEST_F(BridgeMapping, CannotBeViewedWhereItIsSmallerThanARecord) {
  const auto region = memory::hold_region(name, 575);
  ControlBridge bridge;
  std::string message;
  EXPECT_FALSE(bridge.create(name, message));
  EXPECT_EQ(message, "MapViewOfFile failed with error 5");
  EXPECT_TRUE(memory::system().handles.empty());
}

TEST_F(BridgeMapping, IsNotLookedForUnderABadName) {
  for (const bool may_create : {true, false}) {
    ControlBridge bridge;
    std::string message;
    EXPECT_FALSE(may_create ? bridge.create(u"Global\\a b", message) : bridge.open(u"Global\\a b", message));
    EXPECT_EQ(message, name_refused);
    EXPECT_TRUE(memory::system().log.empty());
  }
}

TEST_F(BridgeMapping, IsSharedByTwoBridgesOfOneName) {
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

TEST_F(BridgeMapping, RefusesAStrengthThroughTheBridgeToo) {
  ControlBridge bridge;
  std::string message;
  ASSERT_TRUE(bridge.create(name, message));
  EXPECT_EQ(bridge.publish_footstep(false, false, 1.5f), BridgeResult::value_refused);
  EXPECT_EQ(footstep_of(bridge).raw, 0x0000000100000000u);
}

TEST_F(BridgeMapping, AnswersNotOpenAndTouchesNoOutputWhenClosed) {
  ControlBridge bridge;
  EXPECT_EQ(bridge.publish_footstep(false, false, 0.5f), BridgeResult::not_open);
  EXPECT_EQ(bridge.publish_footstep(false, false, 7.0f), BridgeResult::not_open);
  EXPECT_EQ(bridge.publish_algorithm({}), BridgeResult::not_open);
  EXPECT_EQ(bridge.publish_eq({}), BridgeResult::not_open);
  EXPECT_EQ(bridge.publish_capture_request(1, 1), BridgeResult::not_open);
  FootstepParameters footstep{true, true, 0.25f, 77};
  EXPECT_FALSE(bridge.read_footstep(footstep));
  EXPECT_EQ(footstep.raw, 77u);
  AlgorithmParameters algorithm;
  algorithm.raw = 77;
  EXPECT_FALSE(bridge.read_algorithm(algorithm));
  EXPECT_EQ(algorithm.raw, 77u);
  EqSettings settings;
  settings.revision = 77;
  EXPECT_FALSE(bridge.read_eq(settings));
  EXPECT_EQ(settings.revision, 77u);
  CaptureRequest capture{77, 77, 77};
  EXPECT_FALSE(bridge.read_capture_request(capture));
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

TEST_F(BridgeMapping, CarriesEachReportOfTheEffectIntoTheRecordWithoutACall) {
  for (const Report& report : reports()) {
    SCOPED_TRACE(report.title);
    const auto region = hold_record();
    ControlBridgeRecord expected;
    std::memcpy(&expected, region->words.data(), sizeof expected);
    ControlBridge bridge;
    std::string message;
    ASSERT_TRUE(bridge.open(name, message));
    memory::system().log.clear();
    report.through_bridge(bridge);
    EXPECT_TRUE(memory::system().log.empty());
    const ControlBridgeRecord untouched = expected;
    report.on_record(expected);
    EXPECT_NE(std::memcmp(&expected, &untouched, sizeof expected), 0);
    EXPECT_EQ(std::memcmp(&expected, region->words.data(), sizeof expected), 0);
  }
}

TEST_F(BridgeMapping, ReadsWhatAnotherBridgeReported) {
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

TEST_F(BridgeMapping, DropsEachReportOfTheEffectWhenClosed) {
  ControlBridge bridge;
  for (const Report& report : reports()) report.through_bridge(bridge);
  EXPECT_TRUE(memory::system().log.empty());
  EXPECT_FALSE(bridge.is_open());
  // What was open once is not written to any more.
  const auto region = hold_record();
  std::string message;
  ASSERT_TRUE(bridge.open(name, message));
  bridge.close();
  const std::vector<std::uint64_t> before = region->words;
  for (const Report& report : reports()) report.through_bridge(bridge);
  EXPECT_EQ(region->words, before);
}

TEST_F(BridgeMapping, TouchesNoDiagnosticsWhenClosed) {
  ControlDiagnostics read;
  std::memset(static_cast<void*>(&read), 0x55, sizeof read);
  ControlDiagnostics before;
  std::memcpy(static_cast<void*>(&before), &read, sizeof read);
  ControlBridge bridge;
  EXPECT_FALSE(bridge.read_diagnostics(read));
  EXPECT_EQ(std::memcmp(&read, &before, sizeof read), 0);
}

TEST_F(BridgeMapping, IsReleasedByCloseOnceAndInOrder) {
  ControlBridge bridge;
  std::string message;
  ASSERT_TRUE(bridge.create(name, message));
  memory::system().log.clear();
  bridge.close();
  bridge.close();
  EXPECT_EQ(memory::system().log, (Log{"UnmapViewOfFile", "CloseHandle"}));
  EXPECT_FALSE(bridge.is_open());
  EXPECT_EQ(bridge.name(), u"");
}

TEST_F(BridgeMapping, IsReleasedByTheDestructor) {
  {
    ControlBridge bridge;
    std::string message;
    ASSERT_TRUE(bridge.create(name, message));
    memory::system().log.clear();
  }
  EXPECT_EQ(memory::system().log, (Log{"UnmapViewOfFile", "CloseHandle"}));
}

TEST_F(BridgeMapping, IsReleasedBeforeAnAttemptThatFails) {
  const std::u16string bad_names[] = {u"nonsense", u"Local\\missing"};
  for (const std::u16string& bad_name : bad_names) {
    ControlBridge bridge;
    std::string message;
    ASSERT_TRUE(bridge.create(name, message));
    memory::system().log.clear();
    EXPECT_FALSE(bridge.open(bad_name, message));
    ASSERT_GE(memory::system().log.size(), 2u);
    EXPECT_EQ(memory::system().log[0], "UnmapViewOfFile");
    EXPECT_EQ(memory::system().log[1], "CloseHandle");
    EXPECT_FALSE(bridge.is_open());
    EXPECT_EQ(bridge.name(), u"");
    EXPECT_TRUE(memory::system().handles.empty());
  }
  ControlBridge bridge;
  std::string message;
  ASSERT_TRUE(bridge.create(name, message));
  EXPECT_FALSE(bridge.create(u"local\\x", message));
  EXPECT_EQ(message, name_refused);
  EXPECT_TRUE(memory::system().handles.empty());
}

TEST_F(BridgeMapping, CanBeMadeAgainFromItsOwnName) {
  ControlBridge bridge;
  std::string message;
  ASSERT_TRUE(bridge.create(name, message));
  ASSERT_TRUE(bridge.create(bridge.name(), message));
  EXPECT_EQ(message, created);
  EXPECT_EQ(bridge.name(), name);
  EXPECT_EQ(memory::system().handles.size(), 2u);
}

TEST_F(BridgeMapping, GoesWithAMove) {
  ControlBridge first;
  std::string message;
  ASSERT_TRUE(first.create(name, message));
  ASSERT_EQ(first.publish_footstep(false, true, 0.5f), BridgeResult::done);
  ControlBridge second(std::move(first));
  EXPECT_FALSE(first.is_open());  // NOLINT: the state behind a move is the contract
  EXPECT_EQ(first.name(), u"");
  EXPECT_EQ(first.publish_footstep(false, false, 0.5f), BridgeResult::not_open);
  EXPECT_EQ(second.name(), name);
  EXPECT_EQ(footstep_of(second).raw, 0x000000023F000000u);
  EXPECT_EQ(memory::system().handles.size(), 2u);
}

TEST_F(BridgeMapping, IsClosedWhereAnotherIsMovedInto) {
  ControlBridge first;
  ControlBridge second;
  std::string message;
  ASSERT_TRUE(first.create(name, message));
  ASSERT_TRUE(second.create(u"Local\\other", message));
  memory::system().log.clear();
  second = std::move(first);
  EXPECT_EQ(memory::system().log, (Log{"UnmapViewOfFile", "CloseHandle"}));
  EXPECT_FALSE(first.is_open());  // NOLINT: the state behind a move is the contract
  EXPECT_EQ(first.name(), u"");
  EXPECT_EQ(second.name(), name);
  EXPECT_TRUE(second.is_open());
  EXPECT_EQ(memory::system().handles.size(), 2u);
  EXPECT_TRUE(memory::system().regions.at(u"Local\\other").expired());
}

TEST_F(BridgeMapping, StaysWhereItIsMovedToItself) {
  ControlBridge bridge;
  std::string message;
  ASSERT_TRUE(bridge.create(name, message));
  memory::system().log.clear();
  ControlBridge& same = bridge;
  bridge = std::move(same);
  EXPECT_TRUE(bridge.is_open());
  EXPECT_EQ(bridge.name(), name);
  EXPECT_TRUE(memory::system().log.empty());
}

TEST_F(BridgeMapping, MakesNoCallOnceItIsOpen) {
  ControlBridge bridge;
  std::string message;
  ASSERT_TRUE(bridge.create(name, message));
  memory::system().log.clear();
  static_cast<void>(bridge.publish_footstep(false, false, 0.5f));
  static_cast<void>(bridge.publish_algorithm({}));
  static_cast<void>(bridge.publish_eq({}));
  EqSettings settings;
  static_cast<void>(bridge.read_eq(settings));
  ControlDiagnostics diagnostics;
  static_cast<void>(bridge.read_diagnostics(diagnostics));
  EXPECT_TRUE(memory::system().log.empty());
}

}  // namespace
}  // namespace velmora
