#include "platform/command_surroundings.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "base/text.h"
#include "platform/surroundings.h"

namespace velmora::surroundings {
namespace {

std::map<std::string, std::string>& former_places() {
  static std::map<std::string, std::string> places;
  return places;
}

}  // namespace

std::string set_up_children() {
  return std::filesystem::path(library_path()).replace_filename("velmora_contract_child").string();
}

std::uint32_t exit_code_of_ended() { return 128 + SIGKILL; }

std::string current_directory() { return std::filesystem::current_path().string(); }

bool is_running(std::uint32_t process_id) {
  std::ifstream file("/proc/" + std::to_string(process_id) + "/stat");
  std::string text;
  std::getline(file, text);
  const std::size_t state = text.rfind(')');
  return state != std::string::npos && text.substr(state + 2, 1) != "Z";
}

void end_process(std::uint32_t process_id) { EXPECT_EQ(kill(static_cast<pid_t>(process_id), SIGKILL), 0); }

bool removes_files_of_killed() { return false; }

bool is_private(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0);
  return status.st_uid == geteuid() && (status.st_mode & 0777) == (S_ISDIR(status.st_mode) ? 0700u : 0600u);
}

void open_to_others(const std::string& path) { EXPECT_EQ(chmod(path.c_str(), 0644), 0); }

PrivatePlace private_place() {
  const std::string state = scratch_directory() + "/state";
  return {u"XDG_STATE_HOME", wide_from_utf8(state), state + "/velmora/control"};
}

void NoPlaceKind::release(Native) noexcept {
  for (const auto& [name, text] : former_places()) setenv(name.c_str(), text.c_str(), 1);
  former_places().clear();
}

NoPlace remove_private_places() {
  for (const char* name : {"XDG_STATE_HOME", "HOME"}) {
    if (const char* text = std::getenv(name)) former_places()[name] = text;
    unsetenv(name);
  }
  return NoPlace(1);
}

void StandardInputKind::release(Native native) noexcept {
  EXPECT_EQ(dup2(static_cast<int>(native), STDIN_FILENO), STDIN_FILENO);
  close(static_cast<int>(native));
}

StandardInput put_standard_input(std::string_view bytes) {
  const int former = dup(STDIN_FILENO);
  EXPECT_GE(former, 0);
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  EXPECT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  close(ends[1]);
  EXPECT_EQ(dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
  close(ends[0]);
  return StandardInput(static_cast<std::uintptr_t>(former));
}

}  // namespace velmora::surroundings
