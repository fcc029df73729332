// Services and processes for the tests on Linux: a hosted machine in a file, and forked children.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "platform/machine.h"
#include "platform/services_in_memory.h"
#include "platform/surroundings.h"

namespace velmora::surroundings {
namespace {

// Process numbers, and for each the end of the pipe that keeps it.
std::map<std::uint32_t, int>& children() {
  static std::map<std::uint32_t, int> all;
  return all;
}

}  // namespace

// A machine in a file of its own: the service is read from there.
void set_up_services() {
  const std::string file = scratch_directory() + "/machine.reg";
  put_file(file, "Windows Registry Editor Version 5.00\n\n");
  setenv("VELMORA_MACHINE", file.c_str(), 1);
  ASSERT_EQ(load_machine(), "");
}

void install_service(const ArrangedService& service) {
  put_service(service);
  EXPECT_TRUE(hosted::keep_registry());
  EXPECT_EQ(load_machine(), "");
}

void tear_down_services() {
  forget_services();
  unsetenv("VELMORA_MACHINE");
  EXPECT_EQ(load_machine(), "");
}

void set_up_process_lists() { unsetenv("VELMORA_PROC"); }

void ListedProcessKind::release(Native native) noexcept {
  const auto child = static_cast<pid_t>(native);
  close(children().at(native));
  children().erase(native);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

// It is this program once more, and reads until the parent closes its end of the pipe.
ListedProcess start_listed_process() {
  int kept[2];
  EXPECT_EQ(pipe2(kept, O_CLOEXEC), 0);
  const pid_t child = fork();
  if (child == 0) {
    close(kept[1]);
    char nothing = 0;
    _exit(read(kept[0], &nothing, 1) == 0 ? 0 : 1);
  }
  close(kept[0]);
  children()[static_cast<std::uint32_t>(child)] = kept[1];
  return ListedProcess(static_cast<std::uint32_t>(child));
}

std::u16string listed_process_name() {
  std::array<char, PATH_MAX> program{};
  EXPECT_GT(readlink("/proc/self/exe", program.data(), program.size() - 1), 0);
  const std::string name = std::filesystem::path(program.data()).filename().string();
  return {name.begin(), name.end()};
}

void LoadedLibraryKind::release(Native native) noexcept { EXPECT_EQ(dlclose(native), 0); }

LoadedLibrary load_listed_library() {
  void* const library = dlopen(library_path().c_str(), RTLD_NOW | RTLD_LOCAL);
  EXPECT_NE(library, nullptr);
  return LoadedLibrary(library);
}

bool runs_elevated() {
  std::ifstream status("/proc/self/status");
  std::string word;
  std::uint32_t real = 0;
  std::uint32_t effective = 1;
  while (status >> word && word != "Uid:") continue;
  EXPECT_TRUE(status >> real >> effective);
  return effective == 0;
}

}  // namespace velmora::surroundings
