// Child processes of the POSIX suites. A child does as little as it can and ends by _exit.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace velmora {

// Runs `act` in a child, whose exit code is what it returns.
template <typename Act>
pid_t fork_child(Act act) {
  const pid_t child = fork();
  if (child == 0) _exit(static_cast<int>(act()));
  return child;
}

// Waits for its end. -1 when a signal ended it.
inline int exit_code_of(pid_t child) {
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

template <typename Act>
int answer_of_child(Act act) {
  return exit_code_of(fork_child(act));
}

// The same without root's rights: permissions mean nothing to root. 254 when they cannot be given up.
template <typename Act>
int answer_of_nobody(Act act) {
  constexpr uid_t nobody = 65534;
  return answer_of_child([&act] {
    const bool dropped = geteuid() != 0 || (setgid(nobody) == 0 && setuid(nobody) == 0);
    return dropped ? static_cast<int>(act()) : 254;
  });
}

}  // namespace velmora
