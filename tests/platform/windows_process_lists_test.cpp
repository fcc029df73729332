#include <gtest/gtest.h>

#include <windows.h>

#include "platform/machine.h"
#include "platform/processes.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class WindowsProcessLists : public surroundings::Arranged {};

bool is_handle(std::uintptr_t native) {
  DWORD flags = 0;
  return GetHandleInformation(reinterpret_cast<HANDLE>(native), &flags) != 0;
}

TEST_F(WindowsProcessLists, AreHandlesUntilTheyAreClosed) {
  ProcessSnapshot processes;
  ModuleSnapshot modules;
  ASSERT_EQ(snapshot_processes(processes), 0u);
  ASSERT_EQ(snapshot_modules(own_process_id(), modules), 0u);
  const auto process_list = processes.native();
  const auto module_list = modules.native();
  EXPECT_TRUE(is_handle(process_list));
  EXPECT_TRUE(is_handle(module_list));
  processes.close();
  modules.close();
  EXPECT_FALSE(is_handle(process_list));
  EXPECT_FALSE(is_handle(module_list));
}

// A hundred questions leave less than half as many handles: the system opens some of its own meanwhile.
TEST_F(WindowsProcessLists, LeaveNoTokenOpenBehindTheQuestionForElevation) {
  DWORD before = 0;
  DWORD behind = 0;
  ASSERT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &before));
  for (int round = 0; round < 100; ++round) static_cast<void>(own_process_is_elevated());
  ASSERT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &behind));
  EXPECT_LT(behind, before + 50);
}

}  // namespace
}  // namespace velmora
