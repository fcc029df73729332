#include <gtest/gtest.h>

#include <windows.h>

#include <string>

#include "platform/machine.h"
#include "platform/processes.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class WindowsProcesses : public surroundings::Arranged {};

// A program whose path has this many UTF-16 units; it stays before its first step until `stop`.
struct LongNamedProgram {
  explicit LongNamedProgram(std::size_t length) {
    const std::string directory = surroundings::scratch_directory();
    path.assign(directory.begin(), directory.end());
    path += L'\\';
    path.append(length - path.size() - 4, L'p').append(L".exe");
    const std::u16string child = surroundings::child_program_path();
    EXPECT_TRUE(CopyFileW(std::wstring(child.begin(), child.end()).c_str(), path.c_str(), TRUE));
    STARTUPINFOW start{};
    start.cb = sizeof start;
    EXPECT_TRUE(CreateProcessW(path.c_str(), nullptr, nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr,
                               nullptr, &start, &made));
  }
  void stop() const {
    EXPECT_TRUE(TerminateProcess(made.hProcess, 0));
    EXPECT_EQ(WaitForSingleObject(made.hProcess, 20'000), WAIT_OBJECT_0);
    CloseHandle(made.hThread);
    CloseHandle(made.hProcess);
  }

  std::wstring path;
  PROCESS_INFORMATION made{};
};

// The buffer has 260 units, the closing 0 among them. Wine starts no program with a longer path, and on
// Windows itself the process would have none.
TEST_F(WindowsProcesses, HaveAPathOfUpTo259Units) {
  for (const std::size_t length : {std::size_t{258}, std::size_t{259}}) {
    SCOPED_TRACE(length);
    const LongNamedProgram program(length);
    ASSERT_EQ(program.path.size(), length);
    EXPECT_EQ(process_image_path(program.made.dwProcessId),
              std::u16string(program.path.begin(), program.path.end()));
    program.stop();
  }
}

bool is_handle(std::uintptr_t native) {
  DWORD flags = 0;
  return GetHandleInformation(reinterpret_cast<HANDLE>(native), &flags) != 0;
}

TEST_F(WindowsProcesses, ListsAreHandlesUntilTheyAreClosed) {
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
TEST_F(WindowsProcesses, LeaveNoTokenOpenAfterAskingForElevation) {
  DWORD before = 0;
  DWORD behind = 0;
  ASSERT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &before));
  for (int round = 0; round < 100; ++round) static_cast<void>(own_process_is_elevated());
  ASSERT_TRUE(GetProcessHandleCount(GetCurrentProcess(), &behind));
  EXPECT_LT(behind, before + 50);
}

}  // namespace
}  // namespace velmora
