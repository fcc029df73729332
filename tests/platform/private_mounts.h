// Mounts and networks that only the calling process sees, and what a test does where it may not have them.
#pragma once

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>

namespace velmora::surroundings {

// The reason for skipping a test. ./test lists tests with such a reason as not run.
constexpr const char* mounts_refused = "not run: needs CAP_SYS_ADMIN (mounts, network namespaces)";

// Moves the calling process into namespaces of its own, `spaces` as in unshare(2). Its mounts stay its own.
// False, with errno set, on failure.
inline bool enter_namespaces(int spaces) {
  const int user_space = geteuid() == 0 ? 0 : CLONE_NEWUSER;
  return unshare(CLONE_NEWNS | spaces | user_space) == 0 &&
         mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// Whether the last system call failed for lack of a right. A system that allows no user namespaces says
// ENOSPC.
inline bool lacks_right() { return errno == EPERM || errno == EACCES || errno == ENOSPC; }

}  // namespace velmora::surroundings
