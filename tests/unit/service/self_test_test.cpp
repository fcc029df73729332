#include "service/self_test.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include "bridge/record.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using SelfTest = FreshMachine;

TEST_F(SelfTest, PassesAndReleasesEverything) {
  EXPECT_TRUE(run_self_test());
  EXPECT_EQ(memory::system().standard_output, "Velmora control self-test passed\n");
  EXPECT_TRUE(memory::system().handles.empty());
  EXPECT_EQ(
      calls_of("CoInitializeEx") + calls_of("WSAStartup") + calls_of("socket") + calls_of("CreateFileW"), 0);
}

TEST_F(SelfTest, UsesAMappingOfItsOwnProcess) {
  EXPECT_TRUE(run_self_test());
  ASSERT_EQ(memory::system().regions.size(), 1u);
  EXPECT_EQ(memory::system().regions.begin()->first, u"Local\\VelmoraSelfTest-4711");
}

TEST_F(SelfTest, FailsIfAnyCallFails) {
  const struct {
    std::string operation;
    std::deque<std::int64_t> faults;
  } rows[] = {
      {"ConvertStringSecurityDescriptorToSecurityDescriptorW", {1336}},
      {"CreateFileMappingW", {5}},
      {"MapViewOfFile", {8}},
      {"MapViewOfFile", {0, 8}},
      {"OpenFileMappingW", {0, 5}},
      {"StringFromGUID2", {1}},
      {"StringFromGUID2", {0, 1}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.operation);
    memory::reset();
    memory::system().faults[row.operation] = row.faults;
    EXPECT_FALSE(run_self_test());
    EXPECT_EQ(memory::system().standard_output, "Velmora control self-test failed\n");
    EXPECT_TRUE(memory::system().handles.empty());
  }
}

const std::u16string own_name = u"Local\\VelmoraSelfTest-4711";
const std::string passed = "Velmora control self-test passed\n";
const std::string failed = "Velmora control self-test failed\n";

// An initialised record that exists before the self-test and outlives it.
std::shared_ptr<memory::Region> hold_own_record() {
  auto region = memory::hold_region(own_name, 576);
  initialise_record(*reinterpret_cast<ControlBridgeRecord*>(region->words.data()));
  return region;
}

// The words of the record after the self-test.
std::vector<std::uint64_t> words_at_the_end(const memory::Region& before) {
  std::vector<std::uint64_t> words = before.words;
  const std::pair<std::size_t, std::uint64_t> rows[] = {
      {0x010, 0x000000023F000000},
      {0x018, 1},
      {0x020, 1},
      {0x028, 0x0000BB8000000002},
      {0x030, 0x8000000200000000},
      {0x040, 0x0000000100000000},
      {0x048, 0x0000006000000060},
      {0x050, 0x8000000400000001},
      {0x058, 0x0000000600000000},
      {0x060, 0x0000000100000001},
      {0x068, 0x0000000800000000},
      {0x070, 0x0000BB8001042002},
      {0x078, 0x0000BB8001042002},
      {0x080, 0x800000023F000000},
      {0x088, 0x8000002B40500000},
      {0x090, 0x0000000400400040},
      {0x098, 2},
      {0x0B8, 0xFF38FF8800080001},
  };
  for (const auto& [offset, word] : rows) words[offset / 8] = word;
  return words;
}

TEST_F(SelfTest, RunsTheServiceAndTheWholeLifeOfAnEffect) {
  const auto region = hold_own_record();
  const std::vector<std::uint64_t> expected = words_at_the_end(*region);
  EXPECT_TRUE(run_self_test());
  EXPECT_EQ(memory::system().standard_output, passed);
  EXPECT_EQ(region->words, expected);
}

TEST_F(SelfTest, PassesRepeatedlyInOneProcess) {
  for (int round = 0; round < 3; ++round) EXPECT_TRUE(run_self_test());
  EXPECT_EQ(memory::system().standard_output, passed + passed + passed);
}

TEST_F(SelfTest, FailsOnAnInconsistentRecordAndRunsToTheEnd) {
  const struct {
    const char* what;
    std::size_t offset;
    std::uint64_t at_first;  // makes a value wrong during the test or at its end
    std::uint64_t at_the_end;
  } rows[] = {
      {"an initialisation too many", 0x018, 1, 2},
      {"a lock too many", 0x020, 1, 2},
      {"a runtime attempt too many", 0x040, 1, 0x0000000100000001},
      {"a discovery attempt too many", 0x040, 0x0000000100000000, 0x0000000200000000},
      {"a lock attempt too many", 0x060, 0x0000000000000001, 0x0000000100000002},
      {"an input negotiation too many", 0x060, 0x0000000100000000, 0x0000000200000001},
      {"an output negotiation too many", 0x060, 0x0001000000000000, 0x0001000100000001},
      {"parameters before the first", 0x080, 0x8000000000000000, 0x800000023F000000},
      {"a gain before the first", 0x088, 0x8000000000000000, 0x8000002B40500000},
      {"a mode of an initialisation too many", 0x090, 0x0000000000000001, 0x0000000400400041},
      {"a mode of a lock too many", 0x090, 0x0000000080000000, 0x0000000480400040},
      {"a mode of processing too many", 0x090, 0x0000000100000000, 0x0000000500400040},
      {"a block too many", 0x098, 1, 3},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    memory::reset();
    const auto region = hold_own_record();
    std::vector<std::uint64_t> expected = words_at_the_end(*region);
    region->words[row.offset / 8] = row.at_first;
    expected[row.offset / 8] = row.at_the_end;
    EXPECT_FALSE(run_self_test());
    EXPECT_EQ(memory::system().standard_output, failed);
    EXPECT_EQ(region->words, expected);
  }
}

TEST_F(SelfTest, RunsItsWholeListAfterAFailure) {
  const auto region = hold_own_record();
  const std::vector<std::uint64_t> expected = words_at_the_end(*region);
  // The random bytes come before the bridge, which is still tested.
  memory::system().random_available = false;
  EXPECT_FALSE(run_self_test());
  EXPECT_EQ(memory::system().standard_output, failed);
  EXPECT_EQ(region->words, expected);
}

TEST_F(SelfTest, FailsIfOneSideOfTheBridgeStaysClosed) {
  for (const bool service_closed : {true, false}) {
    memory::reset();
    const auto region = hold_own_record();
    const std::vector<std::uint64_t> first = region->words;
    memory::system().faults["MapViewOfFile"] =
        service_closed ? std::deque<std::int64_t>{8} : std::deque<std::int64_t>{0, 8};
    EXPECT_FALSE(run_self_test());
    EXPECT_EQ(memory::system().standard_output, failed);
    // The other side still writes its part.
    std::vector<std::uint64_t> expected = words_at_the_end(*region);
    if (service_closed) {
      expected[0x010 / 8] = first[0x010 / 8];
      expected[0x0B8 / 8] = first[0x0B8 / 8];
    } else {
      expected = first;
      expected[0x010 / 8] = 0x000000023F000000;
      expected[0x0B8 / 8] = 0xFF38FF8800080001;
    }
    EXPECT_EQ(region->words, expected);
  }
}

TEST_F(SelfTest, IgnoresTheMappingOfAnotherProcess) {
  const auto other = memory::hold_region(u"Local\\VelmoraSelfTest-4712", 576);
  EXPECT_TRUE(run_self_test());
  EXPECT_EQ(other->words, std::vector<std::uint64_t>(72, 0));
}

TEST_F(SelfTest, ReadsNeitherFilesNorRegistry) {
  EXPECT_TRUE(run_self_test());
  for (const std::string& entry : memory::system().log) {
    EXPECT_FALSE(entry.starts_with("Reg") || entry.starts_with("CreateFileW") || entry.starts_with("Find"))
        << entry;
  }
  EXPECT_TRUE(memory::system().files.empty());
}

}  // namespace
}  // namespace velmora
