#include "platform/machine.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "platform/environment_surroundings.h"
#include "platform/files.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

using surroundings::library_path;

class MachineContract : public surroundings::Arranged {};

std::atomic<std::uint32_t> events_seen{0};
std::atomic<std::uint32_t> last_event{0};

bool take_event(std::uint32_t event) {
  last_event = event;
  ++events_seen;
  return true;
}

// The event may arrive on a thread of the system's.
void wait_for_events(std::uint32_t count) {
  constexpr std::int64_t limit_ns = 20'000'000'000;
  const std::int64_t start = steady_now_ns();
  while (events_seen < count && steady_now_ns() - start < limit_ns) sleep_ms(1);
}

TEST_F(MachineContract, KnowsThePathOfItsProgram) {
  const std::string path = own_module_path();
  EXPECT_EQ(query_file_kind(path), FileKind::regular);
  EXPECT_EQ(own_module_path(), path);
  EXPECT_EQ(query_file_kind(parent_path(path)), FileKind::directory);
}

TEST_F(MachineContract, LoadsALibraryAndFindsItsFunction) {
  const DynamicLibrary library = load_library(library_path());
  ASSERT_TRUE(library.is_open());
  const LibraryFunction function = find_library_function(library, "velmora_contract_answer");
  ASSERT_NE(function, nullptr);
  EXPECT_EQ(reinterpret_cast<int (*)()>(function)(), 42);
}

TEST_F(MachineContract, AnswersNullForAFunctionThatALibraryLacks) {
  const DynamicLibrary library = load_library(library_path());
  ASSERT_TRUE(library.is_open());
  for (const char* name :
       {"velmora_contract_absent", "velmora_contract_answe", "VELMORA_CONTRACT_ANSWER", ""}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(find_library_function(library, name), nullptr);
  }
}

TEST_F(MachineContract, LeavesALibraryClosedThatCannotBeLoaded) {
  const std::string directory = surroundings::scratch_directory();
  const std::string garbage = join_path(directory, "garbage.dll");
  const std::string empty = join_path(directory, "empty.dll");
  const std::string begun = join_path(directory, "begun.dll");
  surroundings::put_file(garbage, "this is no library");
  surroundings::put_file(empty, "");
  surroundings::put_file(begun, std::string("MZ\0\0", 4));
  for (const std::string& path : {garbage, empty, begun, join_path(directory, "absent.dll"), directory}) {
    SCOPED_TRACE(path);
    EXPECT_FALSE(load_library(path).is_open());
  }
}

TEST_F(MachineContract, LoadsALibraryAgainAfterItWasClosed) {
  DynamicLibrary library = load_library(library_path());
  library.close();
  EXPECT_FALSE(library.is_open());
  library = load_library(library_path());
  EXPECT_NE(find_library_function(library, "velmora_contract_answer"), nullptr);
}

TEST_F(MachineContract, StartsAndStopsComInPairs) {
  EXPECT_GE(start_com(), 0);
  EXPECT_GE(start_com(), 0);
  stop_com();
  stop_com();
}

TEST_F(MachineContract, HandsEachConsoleEventToTheHandler) {
  install_console_handler(take_event);
  events_seen = 0;
  std::uint32_t expected_count = 0;
  for (const std::uint32_t event : surroundings::console_events()) {
    // Twice: the handler stays.
    for (int round = 0; round < 2; ++round) {
      SCOPED_TRACE(event);
      last_event = 1000;
      surroundings::raise_console_event(event);
      ++expected_count;
      wait_for_events(expected_count);
      EXPECT_EQ(events_seen.load(), expected_count);
      EXPECT_EQ(last_event.load(), event);
    }
  }
  EXPECT_GT(expected_count, 0u);
}

TEST_F(MachineContract, OpensAnAddressInTheBrowser) {
  const surroundings::Browser browser = surroundings::install_browser();
  const std::string address = surroundings::browser_address();
  EXPECT_GT(open_in_browser(address), 32);
  const std::vector<std::string> record = surroundings::read_browser_record();
  ASSERT_FALSE(record.empty());
  EXPECT_EQ(record[0], address);
}

TEST_F(MachineContract, AnswersAtMost32WhenNoBrowserCanBeStarted) {
  const surroundings::Browser none = surroundings::remove_browser();
  EXPECT_LE(open_in_browser(surroundings::browser_address()), 32);
}

TEST_F(MachineContract, FillsEveryByteOfTheBufferAndNoneBehindIt) {
  constexpr std::size_t size = 32;
  std::array<bool, size> was_changed{};
  for (int round = 0; round < 64; ++round) {
    // A byte that is never written keeps both of these.
    for (const unsigned char before : {static_cast<unsigned char>(0x00), static_cast<unsigned char>(0xFF)}) {
      std::array<unsigned char, size + 8> buffer;
      buffer.fill(before);
      ASSERT_TRUE(fill_random(buffer.data(), size));
      for (std::size_t index = 0; index < size; ++index) {
        was_changed[index] = was_changed[index] || buffer[index] != before;
      }
      for (std::size_t index = size; index < buffer.size(); ++index) ASSERT_EQ(buffer[index], before);
    }
  }
  for (std::size_t index = 0; index < size; ++index) {
    SCOPED_TRACE(index);
    EXPECT_TRUE(was_changed[index]);
  }
}

TEST_F(MachineContract, FillsABufferOfAnySize) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{255}, std::size_t{100'000}}) {
    SCOPED_TRACE(size);
    std::vector<unsigned char> buffer(size + 1, 0x5A);
    EXPECT_TRUE(fill_random(buffer.data(), size));
    EXPECT_EQ(buffer.back(), 0x5A);
  }
}

TEST_F(MachineContract, WritesAGuidInUpperCaseWithBracesAndLeadingZeros) {
  const struct {
    Guid guid;
    std::u16string text;
  } cases[] = {
      {{0xd04e05a6, 0x594b, 0x4fb6, {0xa8, 0x0d, 0x01, 0xaf, 0x5e, 0xed, 0x7d, 0x1d}},
       u"{D04E05A6-594B-4FB6-A80D-01AF5EED7D1D}"},
      {{0x1, 0x2, 0x3, {0x4, 0x5, 0x6, 0x7, 0x8, 0x9, 0xa, 0xb}}, u"{00000001-0002-0003-0405-060708090A0B}"},
      {{0, 0, 0, {}}, u"{00000000-0000-0000-0000-000000000000}"},
      {{0xffffffff, 0xffff, 0xffff, {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}},
       u"{FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF}"}};
  for (const auto& entry : cases) {
    SCOPED_TRACE(entry.guid.data1);
    EXPECT_EQ(guid_text(entry.guid), entry.text);
  }
}

TEST_F(MachineContract, FindsNothingWrongWithTheMachineThatNobodyHasChanged) {
  EXPECT_EQ(load_machine(), "");
}

TEST_F(MachineContract, KeepsItsProcessNumber) {
  EXPECT_NE(own_process_id(), 0u);
  EXPECT_EQ(own_process_id(), own_process_id());
}

TEST_F(MachineContract, KeepsTheNamesOfTheMachine) {
  // A minimal system may lack an identifier; it is the same at each look then too.
  const std::string identifier = machine_identifier();
  EXPECT_EQ(machine_identifier(), identifier);
  EXPECT_EQ(identifier.find_first_of(std::string("\r\n\0", 3)), std::string::npos);
  const std::string name = machine_name();
  EXPECT_NE(name, "");
  EXPECT_EQ(machine_name(), name);
  EXPECT_EQ(name.find_first_of(std::string("\r\n\0", 3)), std::string::npos);
}

TEST_F(MachineContract, ReadsAVariableOfTheEnvironment) {
  const std::u16string texts[] = {u"x", u"C:\\Program Data", u"a=b", u" \u4E2D\xD83D\xDE00 ",
                                  std::u16string(1000, u'x')};
  for (const std::u16string& text : texts) {
    surroundings::set_environment(u"VELMORA_CONTRACT", text);
    EXPECT_EQ(environment_variable(u"VELMORA_CONTRACT"), text);
    EXPECT_EQ(environment_variable(u"VELMORA_CONTRACT_ABSENT"), u"");
    EXPECT_EQ(environment_variable(u"VELMORA_CONTRAC"), u"");
  }
  surroundings::set_environment(u"VELMORA_CONTRACT", u"");
  EXPECT_EQ(environment_variable(u"VELMORA_CONTRACT"), u"");
}

}  // namespace
}  // namespace velmora
