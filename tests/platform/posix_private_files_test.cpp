// What only Linux shows of private files: modes, owners, links, and disks that are full or write-protected.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "platform/files.h"
#include "platform/posix_child.h"
#include "platform/private_files.h"
#include "platform/private_mounts.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

constexpr uid_t nobody = 65534;
constexpr const char* root_needed = "not run: needs root (files of other users)";

class PosixPrivateFiles : public surroundings::Arranged {
 protected:
  static std::string path() { return surroundings::scratch_directory() + "/run.json"; }
};

mode_t mode_of(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0);
  return status.st_mode & 07777;
}

std::string contents_of(const std::string& path) {
  std::string bytes;
  EXPECT_EQ(read_whole_file(path, bytes), 0u);
  return bytes;
}

TEST_F(PosixPrivateFiles, KeepTheirModeUnderAnyMask) {
  for (const mode_t mask : {0u, 0777u, 0277u}) {
    SCOPED_TRACE(mask);
    const mode_t former = umask(mask);
    HeldFile file;
    EXPECT_EQ(hold_private_file(path(), file), 0u);
    EXPECT_EQ(write_private_file(path() + "2", "x"), 0u);
    umask(former);
    EXPECT_EQ(mode_of(path()), 0600u);
    EXPECT_EQ(mode_of(path() + "2"), 0600u);
  }
}

TEST_F(PosixPrivateFiles, AreRefusedForEachRightOfOthers) {
  ASSERT_EQ(write_private_file(path(), "secret"), 0u);
  for (const mode_t right : {0040u, 0020u, 0010u, 0004u, 0002u, 0001u}) {
    SCOPED_TRACE(right);
    ASSERT_EQ(chmod(path().c_str(), 0600 | right), 0);
    EXPECT_EQ(read_private_file(path()).error, 1307u);
  }
  ASSERT_EQ(chmod(path().c_str(), 0400), 0);
  EXPECT_EQ(read_private_file(path()).error, 0u);
}

TEST_F(PosixPrivateFiles, AreNeverReachedThroughALink) {
  const std::string target = surroundings::scratch_directory() + "/target";
  surroundings::put_file(target, "somebody's");
  for (const std::string& end : {target, surroundings::scratch_directory() + "/absent"}) {
    SCOPED_TRACE(end);
    ASSERT_EQ(symlink(end.c_str(), path().c_str()), 0);
    EXPECT_EQ(read_private_file(path()).error, 1921u);
    HeldFile file;
    EXPECT_EQ(hold_private_file(path(), file), 0u);
    EXPECT_EQ(write_held_file(file, "ours"), 0u);
    file.close();
    ASSERT_EQ(symlink(end.c_str(), path().c_str()), 0);
    EXPECT_EQ(write_private_file(path(), "ours"), 0u);
    EXPECT_EQ(read_private_file(path()).bytes, "ours");
    ASSERT_EQ(remove_file(path()), 0u);
  }
  EXPECT_EQ(contents_of(target), "somebody's");
  EXPECT_EQ(query_file_kind(surroundings::scratch_directory() + "/absent"), FileKind::missing);
}

TEST_F(PosixPrivateFiles, AreInNoFolderBehindALink) {
  const std::string folder = surroundings::scratch_directory() + "/folder";
  const std::string link = surroundings::scratch_directory() + "/link";
  surroundings::put_directory(folder);
  ASSERT_EQ(chmod(folder.c_str(), 0755), 0);
  ASSERT_EQ(symlink(folder.c_str(), link.c_str()), 0);
  EXPECT_EQ(make_private_directory(link), 1921u);
  EXPECT_EQ(mode_of(folder), 0755u);
}

TEST_F(PosixPrivateFiles, TakeThePlaceOfAPipeAndDoNotReadOne) {
  const std::string pipe = surroundings::path_of_other_kind();
  EXPECT_EQ(read_private_file(pipe).error, 5u);
  HeldFile file;
  EXPECT_EQ(hold_private_file(pipe, file), 0u);
  EXPECT_EQ(query_file_kind(pipe), FileKind::regular);
}

// A reader has a shared lock for a moment, which is not one that holds.
TEST_F(PosixPrivateFiles, AreHeldByAnExclusiveLockOnly) {
  ASSERT_EQ(write_private_file(path(), "left"), 0u);
  const int reader = open(path().c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(reader, LOCK_SH | LOCK_NB), 0);
  EXPECT_FALSE(read_private_file(path()).is_held);
  ASSERT_EQ(flock(reader, LOCK_EX | LOCK_NB), 0);
  EXPECT_TRUE(read_private_file(path()).is_held);
  HeldFile file;
  EXPECT_EQ(hold_private_file(path(), file), 32u);
  close(reader);
  EXPECT_EQ(hold_private_file(path(), file), 0u);
}

// A program that does not use these functions may remove the file. What comes after it is not ours to remove.
TEST_F(PosixPrivateFiles, LeaveAFileThatHasTakenTheirPlace) {
  HeldFile file;
  ASSERT_EQ(hold_private_file(path(), file), 0u);
  ASSERT_TRUE(surroundings::remove_elsewhere(path()));
  surroundings::put_file(path(), "newer");
  file.close();
  EXPECT_EQ(contents_of(path()), "newer");
}

TEST_F(PosixPrivateFiles, OfAnotherUserAreRefused) {
  if (geteuid() != 0) GTEST_SKIP() << root_needed;
  const std::string folder = surroundings::scratch_directory() + "/folder";
  ASSERT_EQ(write_private_file(path(), "theirs"), 0u);
  ASSERT_EQ(chown(path().c_str(), nobody, nobody), 0);
  EXPECT_EQ(read_private_file(path()).error, 1307u);
  EXPECT_EQ(read_private_file(path()).bytes, "");
  EXPECT_EQ(write_private_file(path(), "ours"), 1307u);
  EXPECT_EQ(contents_of(path()), "theirs");
  surroundings::put_directory(folder);
  ASSERT_EQ(chown(folder.c_str(), nobody, nobody), 0);
  EXPECT_EQ(make_private_directory(folder), 1307u);
  // Nobody holds it.
  HeldFile file;
  EXPECT_EQ(hold_private_file(path(), file), 0u);
  EXPECT_TRUE(read_private_file(path()).is_held);
}

// The same seen by a user who may not open the other's file.
TEST_F(PosixPrivateFiles, OfAnotherUserAreRefusedWithoutARightToOpenThem) {
  if (geteuid() != 0) GTEST_SKIP() << root_needed;
  ASSERT_EQ(chmod(surroundings::scratch_directory().c_str(), 0777), 0);
  ASSERT_EQ(write_private_file(path(), "root's"), 0u);
  const std::string file_path = path();
  EXPECT_EQ(answer_of_nobody([&] { return read_private_file(file_path).error == 1307 ? 1 : 0; }), 1);
  EXPECT_EQ(answer_of_nobody([&] {
              HeldFile file;
              return hold_private_file(file_path, file) == 1307 && !file.is_open() ? 1 : 0;
            }),
            1);
  EXPECT_EQ(contents_of(path()), "root's");
}

// A disk of 64 KiB that only the child sees. It ends with the child.
TEST_F(PosixPrivateFiles, LeaveNothingHalfWrittenOnAFullDisk) {
  constexpr std::uint32_t refused = 255;
  constexpr std::uint32_t no_disk = 252;
  const std::string disk = surroundings::scratch_directory();
  const std::string large(100'000, 'x');
  const auto with_disk = [&disk](auto act) {
    return answer_of_child([&]() -> std::uint32_t {
      if (!surroundings::enter_namespaces(0) || mount("velmora", disk.c_str(), "tmpfs", 0, "size=64k") != 0) {
        return surroundings::lacks_right() ? refused : no_disk;
      }
      return act();
    });
  };
  if (with_disk([] { return 0u; }) == refused) GTEST_SKIP() << surroundings::mounts_refused;
  EXPECT_EQ(with_disk([&]() -> std::uint32_t {
              HeldFile file;
              if (hold_private_file(path(), file) != 0 || write_held_file(file, "small") != 0) return 1;
              if (write_held_file(file, large) != 112) return 2;
              const PrivateFileRead read = read_private_file(path());
              return read.error == 0 && read.is_held && read.bytes.empty() ? 0 : 3;
            }),
            0);
  EXPECT_EQ(with_disk([&]() -> std::uint32_t {
              if (write_private_file(path(), "small") != 0) return 1;
              if (write_private_file(path(), large) != 112) return 2;
              std::vector<std::string> names;
              return list_directory(disk, names) == 0 && names.empty() ? 0 : 3;
            }),
            0);
  EXPECT_EQ(with_disk([&]() -> std::uint32_t {
              if (mount(nullptr, disk.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) return 1;
              HeldFile file;
              if (hold_private_file(path(), file) != 19 || file.is_open()) return 2;
              if (make_private_directory(disk + "/folder") != 19) return 4;
              return write_private_file(path(), "x") == 19 ? 0 : 3;
            }),
            0);
}

TEST_F(PosixPrivateFiles, AreInTheStateFolderOfTheUser) {
  const char* former_home = std::getenv("HOME");
  const std::string home = former_home == nullptr ? "" : former_home;
  unsetenv("XDG_STATE_HOME");
  setenv("HOME", "/home/someone", 1);
  EXPECT_EQ(private_directory(), "/home/someone/.local/state/velmora/control");
  setenv("HOME", home.c_str(), 1);
}

}  // namespace
}  // namespace velmora
