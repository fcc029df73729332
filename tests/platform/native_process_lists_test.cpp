// A list of the system's own is a copy. The machine in memory walks what is there at the moment instead, so
// that a test may change it meanwhile.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/processes.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class NativeProcessLists : public surroundings::Arranged {};

std::vector<std::uint32_t> ids_in(const ProcessSnapshot& snapshot) {
  std::vector<std::uint32_t> ids;
  ProcessEntry entry;
  for (bool more = first_process(snapshot, entry); more; more = next_process(snapshot, entry)) {
    ids.push_back(entry.process_id);
  }
  return ids;
}

std::vector<std::u16string> paths_in(const ModuleSnapshot& snapshot) {
  std::vector<std::u16string> paths;
  ModuleEntry entry;
  for (bool more = first_module(snapshot, entry) == 0; more; more = next_module(snapshot, entry)) {
    paths.push_back(entry.path);
  }
  return paths;
}

TEST_F(NativeProcessLists, StayAsTheyWereWhenTheyWereMade) {
  surroundings::ListedProcess process = surroundings::start_listed_process();
  ProcessSnapshot processes;
  ModuleSnapshot modules;
  ASSERT_EQ(snapshot_processes(processes), 0u);
  ASSERT_EQ(snapshot_modules(process.native(), modules), 0u);
  const auto ids = ids_in(processes);
  const auto paths = paths_in(modules);
  EXPECT_FALSE(paths.empty());
  process.close();
  EXPECT_EQ(ids_in(processes), ids);
  EXPECT_EQ(paths_in(modules), paths);
}

}  // namespace
}  // namespace velmora
