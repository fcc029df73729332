#include "engine_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

namespace velmora::supervisor {

bool EngineProcess::start(const std::string& program) {
  end();
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return false;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[0], STDIN_FILENO);
  std::string name = program;
  const std::array<char*, 2> arguments{name.data(), nullptr};
  const int error = posix_spawn(&id_, program.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(ends[0]);
  orders_ = ends[1];
  if (error != 0) {
    id_ = 0;
    forget();
  }
  return error == 0;
}

void EngineProcess::load(std::string_view library) const {
  const std::string order = std::string("load ").append(library).append("\n");
  // One that has gone is noticed by is_running.
  static_cast<void>(!write(orders_, order.data(), order.size()));
}

void EngineProcess::end() {
  if (id_ == 0) return;
  kill(id_, SIGTERM);
  waitpid(id_, nullptr, 0);
  forget();
}

bool EngineProcess::is_running() {
  if (id_ != 0 && waitpid(id_, nullptr, WNOHANG) == id_) forget();
  return id_ != 0;
}

void EngineProcess::forget() {
  id_ = 0;
  if (orders_ >= 0) ::close(orders_);
  orders_ = -1;
}

}  // namespace velmora::supervisor
