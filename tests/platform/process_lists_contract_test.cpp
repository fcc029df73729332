// Snapshots of processes and of their modules, and the elevation of the own one.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "platform/machine.h"
#include "platform/processes.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

using surroundings::library_path;

// winerror.h
constexpr std::uint32_t error_denied = 5;
constexpr std::uint32_t error_no_such_process = 87;

class ProcessListsContract : public surroundings::Arranged {
 protected:
  void SetUp() override {
    surroundings::Arranged::SetUp();
    surroundings::set_up_process_lists();
  }
};

// Test programs lie below directories of plain characters.
std::u16string wide(const std::string& text) { return {text.begin(), text.end()}; }

std::u16string file_name_of(const std::u16string& path) { return path.substr(path.find_last_of(u"/\\") + 1); }

ProcessSnapshot list_processes() {
  ProcessSnapshot snapshot;
  EXPECT_EQ(snapshot_processes(snapshot), 0u);
  EXPECT_TRUE(snapshot.is_open());
  return snapshot;
}

ModuleSnapshot list_modules(std::uint32_t process_id) {
  ModuleSnapshot snapshot;
  EXPECT_EQ(snapshot_modules(process_id, snapshot), 0u);
  EXPECT_TRUE(snapshot.is_open());
  return snapshot;
}

std::vector<ProcessEntry> walk(const ProcessSnapshot& snapshot) {
  std::vector<ProcessEntry> entries;
  ProcessEntry entry;
  for (bool more = first_process(snapshot, entry); more; more = next_process(snapshot, entry)) {
    entries.push_back(entry);
  }
  return entries;
}

std::vector<ModuleEntry> walk(const ModuleSnapshot& snapshot) {
  std::vector<ModuleEntry> entries;
  ModuleEntry entry;
  for (bool more = first_module(snapshot, entry) == 0; more; more = next_module(snapshot, entry)) {
    entries.push_back(entry);
  }
  return entries;
}

// The names of a process in the list.
std::vector<std::u16string> names_of(std::uint32_t process_id) {
  std::vector<std::u16string> names;
  for (const ProcessEntry& entry : walk(list_processes())) {
    if (entry.process_id == process_id) names.push_back(entry.file_name);
  }
  return names;
}

// The names of the module of this path in a process's list.
std::vector<std::u16string> names_of_module(std::uint32_t process_id, const std::string& path) {
  std::vector<std::u16string> names;
  for (const ModuleEntry& entry : walk(list_modules(process_id))) {
    if (entry.path == wide(path)) names.push_back(entry.name);
  }
  return names;
}

using Names = std::vector<std::u16string>;

TEST_F(ProcessListsContract, ListsThisProcessOnceByTheFileNameOfItsProgram) {
  EXPECT_EQ(names_of(own_process_id()), Names{file_name_of(wide(own_module_path()))});
}

TEST_F(ProcessListsContract, ListsAProcessForAsLongAsItLives) {
  surroundings::ListedProcess process = surroundings::start_listed_process();
  const std::uint32_t id = process.native();
  EXPECT_EQ(names_of(id), Names{surroundings::listed_process_name()});
  process.close();
  EXPECT_EQ(names_of(id), Names());
}

TEST_F(ProcessListsContract, NamesNoProcessTwiceAndNoneWithADirectory) {
  std::vector<ProcessEntry> entries = walk(list_processes());
  std::vector<std::uint32_t> ids;
  for (const ProcessEntry& entry : entries) {
    ids.push_back(entry.process_id);
    EXPECT_EQ(file_name_of(entry.file_name), entry.file_name);
    EXPECT_FALSE(entry.file_name.empty());
  }
  std::sort(ids.begin(), ids.end());
  EXPECT_EQ(std::adjacent_find(ids.begin(), ids.end()), ids.end());
  EXPECT_GE(ids.size(), 2u);
}

TEST_F(ProcessListsContract, BeginsTheListAnewWithTheFirstProcess) {
  const ProcessSnapshot snapshot = list_processes();
  const std::vector<ProcessEntry> first = walk(snapshot);
  ProcessEntry entry;
  ASSERT_TRUE(first_process(snapshot, entry));
  ASSERT_TRUE(next_process(snapshot, entry));
  ASSERT_TRUE(first_process(snapshot, entry));
  EXPECT_EQ(entry.process_id, first.front().process_id);
  EXPECT_EQ(walk(snapshot).size(), first.size());
}

TEST_F(ProcessListsContract, LeavesTheEntryUnchangedAfterTheLastProcess) {
  const ProcessSnapshot snapshot = list_processes();
  walk(snapshot);
  ProcessEntry entry{77, u"as it was"};
  for (int round = 0; round < 2; ++round) {
    EXPECT_FALSE(next_process(snapshot, entry));
    EXPECT_EQ(entry.process_id, 77u);
    EXPECT_EQ(entry.file_name, u"as it was");
  }
}

TEST_F(ProcessListsContract, WalksTwoListsSideBySide) {
  const ProcessSnapshot left = list_processes();
  const ProcessSnapshot right = list_processes();
  ProcessEntry first;
  ProcessEntry second;
  ProcessEntry other;
  ASSERT_TRUE(first_process(left, first));
  ASSERT_TRUE(next_process(left, second));
  ASSERT_TRUE(first_process(right, other));
  EXPECT_EQ(other.process_id, first.process_id);
  ASSERT_TRUE(next_process(right, other));
  EXPECT_EQ(other.process_id, second.process_id);
}

TEST_F(ProcessListsContract, ListsTheProgramAmongTheModulesOfItsProcess) {
  const std::string path = own_module_path();
  EXPECT_EQ(names_of_module(own_process_id(), path), Names{file_name_of(wide(path))});
}

TEST_F(ProcessListsContract, ListsALibraryForAsLongAsItIsLoaded) {
  EXPECT_EQ(names_of_module(own_process_id(), library_path()), Names());
  surroundings::LoadedLibrary library = surroundings::load_listed_library();
  EXPECT_EQ(names_of_module(own_process_id(), library_path()), Names{file_name_of(wide(library_path()))});
  library.close();
  EXPECT_EQ(names_of_module(own_process_id(), library_path()), Names());
}

TEST_F(ProcessListsContract, ListsTheModulesOfAnotherProcess) {
  const surroundings::ListedProcess process = surroundings::start_listed_process();
  Names names;
  for (const ModuleEntry& entry : walk(list_modules(process.native()))) names.push_back(entry.name);
  EXPECT_EQ(std::count(names.begin(), names.end(), surroundings::listed_process_name()), 1);
}

TEST_F(ProcessListsContract, NamesEachModuleByTheEndOfItsPath) {
  const std::vector<ModuleEntry> entries = walk(list_modules(own_process_id()));
  ASSERT_FALSE(entries.empty());
  for (const ModuleEntry& entry : entries) EXPECT_EQ(file_name_of(entry.path), entry.name);
}

TEST_F(ProcessListsContract, LeavesTheEntryUnchangedAfterTheLastModule) {
  const ModuleSnapshot snapshot = list_modules(own_process_id());
  const std::size_t count = walk(snapshot).size();
  ModuleEntry entry{u"name", u"path"};
  for (int round = 0; round < 2; ++round) {
    EXPECT_FALSE(next_module(snapshot, entry));
    EXPECT_EQ(entry.name, u"name");
    EXPECT_EQ(entry.path, u"path");
  }
  EXPECT_EQ(walk(snapshot).size(), count);
}

TEST_F(ProcessListsContract, ReportsThatNoProcessHasAnId) {
  surroundings::ListedProcess process = surroundings::start_listed_process();
  const std::uint32_t free_id = process.native();
  process.close();
  ModuleSnapshot snapshot = list_modules(own_process_id());
  const auto former = snapshot.native();
  // Wine returns the error of a process that it denies access to.
  const std::uint32_t error = surroundings::runs_under_wine() ? error_denied : error_no_such_process;
  EXPECT_EQ(snapshot_modules(free_id, snapshot), error);
  EXPECT_EQ(snapshot.native(), former);
  EXPECT_FALSE(walk(snapshot).empty());
}

TEST_F(ProcessListsContract, WalksAListToItsEndAlthoughTheProcessHasGone) {
  surroundings::ListedProcess process = surroundings::start_listed_process();
  const ProcessSnapshot processes = list_processes();
  const ModuleSnapshot modules = list_modules(process.native());
  const std::size_t process_count = walk(processes).size();
  const std::size_t module_count = walk(modules).size();
  process.close();
  EXPECT_LE(walk(processes).size(), process_count);
  EXPECT_LE(walk(modules).size(), module_count);
}

TEST_F(ProcessListsContract, ClosesEachListOnce) {
  ProcessSnapshot first = list_processes();
  ProcessSnapshot second = list_processes();
  first = std::move(second);
  ProcessSnapshot third(std::move(first));
  EXPECT_FALSE(walk(third).empty());
  third.close();
  third.close();
  EXPECT_FALSE(third.is_open());
  ModuleSnapshot modules = list_modules(own_process_id());
  modules = list_modules(own_process_id());
  EXPECT_FALSE(walk(modules).empty());
}

TEST_F(ProcessListsContract, KnowsWhetherItIsElevated) {
  const bool elevated = surroundings::runs_elevated();
  EXPECT_EQ(own_process_is_elevated(), elevated);
}

}  // namespace
}  // namespace velmora
