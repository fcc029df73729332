#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/files.h"
#include "platform/posix/drives.h"
#include "platform/posix_child.h"
#include "platform/private_mounts.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class PosixFiles : public surroundings::Arranged {};

TEST_F(PosixFiles, DoNotWaitForTheWriterOfAPipeInAFilesPlace) {
  const std::string path = surroundings::path_of_other_kind();
  InputFile file;
  ASSERT_EQ(open_for_reading(path, file), 0u);
  char byte = '#';
  const FileRead without_writer = read_file_piece(file, &byte, 1);
  EXPECT_EQ(without_writer.count, 0u);
  EXPECT_EQ(without_writer.error, 0u);
  const int writer = open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK);
  ASSERT_GE(writer, 0);
  const FileRead with_writer = read_file_piece(file, &byte, 1);
  close(writer);
  EXPECT_EQ(with_writer.count, 0u);
  EXPECT_NE(with_writer.error, 0u);
}

TEST_F(PosixFiles, AreNotInheritedByProgramsThatWeStart) {
  const std::string path = surroundings::scratch_directory() + "/page.html";
  surroundings::put_file(path, "x");
  InputFile file;
  ASSERT_EQ(open_for_reading(path, file), 0u);
  EXPECT_EQ(fcntl(static_cast<int>(file.native()), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(PosixFiles, AreReadAndWrittenThroughLinks) {
  const std::string directory = surroundings::scratch_directory();
  surroundings::put_file(directory + "/page.html", "linked");
  const struct {
    const char* target;
    const char* name;
    FileKind kind;
    std::uint32_t size_error;
    std::uint32_t make_error;
  } cases[] = {{"page.html", "to-file", FileKind::regular, 0, 183},
               {".", "to-directory", FileKind::directory, 5, 0},
               {"absent", "to-nothing", FileKind::missing, 2, 183},
               {"to-itself", "to-itself", FileKind::missing, 1921, 183}};
  for (const auto& entry : cases) {
    SCOPED_TRACE(entry.name);
    const std::string link = directory + "/" + entry.name;
    ASSERT_EQ(symlink(entry.target, link.c_str()), 0);
    EXPECT_EQ(query_file_kind(link), entry.kind);
    std::uint64_t size = 77;
    EXPECT_EQ(query_file_size(link, size), entry.size_error);
    EXPECT_EQ(size, entry.size_error == 0 ? 6u : 77u);
    EXPECT_EQ(make_directories(link), entry.make_error);
  }
  EXPECT_EQ(make_directories(directory + "/to-nothing/below"), 3u);
  EXPECT_EQ(write_whole_file(directory + "/to-file", "new"), 0u);
  std::uint64_t size = 0;
  EXPECT_EQ(query_file_size(directory + "/page.html", size), 0u);
  EXPECT_EQ(size, 3u);
}

TEST_F(PosixFiles, TakePathsThatAreNoUtf8AsTheyAre) {
  const std::string path = surroundings::scratch_directory() + "/\xFF\xC0page";
  surroundings::put_file(path, "odd");
  EXPECT_EQ(query_file_kind(path), FileKind::regular);
  InputFile file;
  EXPECT_EQ(open_for_reading(path, file), 0u);
}

TEST_F(PosixFiles, AnswerAPathThroughAFileAndOneThatIsTooLong) {
  const std::string path = surroundings::scratch_directory() + "/page.html";
  surroundings::put_file(path, "x");
  InputFile file;
  EXPECT_EQ(open_for_reading(path + "/more", file), 3u);
  EXPECT_EQ(open_for_reading(path + std::string(5000, 'x'), file), 206u);
  EXPECT_FALSE(file.is_open());
}

TEST_F(PosixFiles, AreRemovedAsLinksAndNotAsWhatTheyLeadTo) {
  const std::string directory = surroundings::scratch_directory();
  surroundings::put_file(directory + "/page.html", "linked");
  surroundings::put_directory(directory + "/pages");
  for (const char* target : {"page.html", "pages", "absent", "link"}) {
    SCOPED_TRACE(target);
    const std::string link = directory + "/link";
    ASSERT_EQ(symlink(target, link.c_str()), 0);
    EXPECT_EQ(remove_file(link), 0u);
    struct stat status {};
    EXPECT_NE(lstat(link.c_str(), &status), 0);
  }
  EXPECT_EQ(query_file_kind(directory + "/page.html"), FileKind::regular);
  EXPECT_EQ(query_file_kind(directory + "/pages"), FileKind::directory);
}

TEST_F(PosixFiles, DoNotWaitForTheReaderOfAPipeInAFilesPlace) {
  const std::string path = surroundings::path_of_other_kind();
  EXPECT_NE(write_whole_file(path, "abc"), 0u);
  const int reader = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  EXPECT_EQ(write_whole_file(path, std::string(300'000, 'x')), 5u);
  char byte = '#';
  EXPECT_EQ(read(reader, &byte, 1), 0);
  close(reader);
  std::vector<std::string> names;
  EXPECT_EQ(list_directory(path, names), 267u);
  EXPECT_EQ(remove_file(path), 0u);
}

TEST_F(PosixFiles, GiveNothingToADevice) {
  EXPECT_EQ(query_file_kind("/dev/null"), FileKind::other);
  EXPECT_EQ(write_whole_file("/dev/null", "abc"), 5u);
  EXPECT_EQ(write_whole_file("/dev/full", "abc"), 5u);
}

TEST_F(PosixFiles, EndAtTheLimitOfAFilesSize) {
  const std::string path = surroundings::scratch_directory() + "/limited";
  const int answer = answer_of_child([&path] {
    const rlimit limit{4096, 4096};
    signal(SIGXFSZ, SIG_IGN);
    return setrlimit(RLIMIT_FSIZE, &limit) == 0 ? write_whole_file(path, std::string(10'000, 'x')) : 255;
  });
  EXPECT_EQ(answer, 112);
  std::uint64_t size = 0;
  EXPECT_EQ(query_file_size(path, size), 0u);
  EXPECT_EQ(size, 4096u);
}

// A disk of 64 KiB that only the child sees. It ends with the child.
TEST_F(PosixFiles, AnswerThatADiskIsFullOrWriteProtected) {
  constexpr std::uint32_t refused = 255;
  constexpr std::uint32_t no_disk = 252;
  const std::string disk = surroundings::scratch_directory();
  const auto with_disk = [&disk](auto act) {
    return answer_of_child([&]() -> std::uint32_t {
      if (!surroundings::enter_namespaces(0) || mount("velmora", disk.c_str(), "tmpfs", 0, "size=64k") != 0) {
        return surroundings::lacks_right() ? refused : no_disk;
      }
      return act();
    });
  };
  if (with_disk([] { return 0u; }) == refused) GTEST_SKIP() << surroundings::mounts_refused;
  EXPECT_EQ(with_disk([&] { return write_whole_file(disk + "/large", std::string(100'000, 'x')); }), 112);
  const int room_again = with_disk([&] {
    const std::uint32_t first = write_whole_file(disk + "/large", std::string(100'000, 'x'));
    const std::uint32_t second = write_whole_file(disk + "/large", "small");
    return first == 112 ? second : first;
  });
  EXPECT_EQ(room_again, 0);
  for (const bool removes : {false, true}) {
    SCOPED_TRACE(removes);
    const int write_protected = with_disk([&]() -> std::uint32_t {
      if (write_whole_file(disk + "/file", "x") != 0) return 254;
      if (mount(nullptr, disk.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) return 253;
      return removes ? remove_file(disk + "/file") : write_whole_file(disk + "/file", "y");
    });
    EXPECT_EQ(write_protected, 19);
  }
}

TEST_F(PosixFiles, AreRefusedToWhoHasNoRight) {
  const std::string directory = surroundings::scratch_directory();
  const std::string closed = directory + "/closed";
  const std::string fixed = directory + "/fixed";
  ASSERT_EQ(chmod(directory.c_str(), 0755), 0);
  for (const std::string& made : {closed, fixed}) {
    surroundings::put_directory(made);
    surroundings::put_file(made + "/file", "content");
    ASSERT_EQ(chmod((made + "/file").c_str(), 0444), 0);
  }
  ASSERT_EQ(chmod(closed.c_str(), 0), 0);
  ASSERT_EQ(chmod(fixed.c_str(), 0555), 0);
  using Act = std::uint32_t (*)(const std::string&);
  const Act read = [](const std::string& path) {
    InputFile file;
    return open_for_reading(path, file);
  };
  const Act size = [](const std::string& path) {
    std::uint64_t bytes = 0;
    return query_file_size(path, bytes);
  };
  const Act write = [](const std::string& path) { return write_whole_file(path, "x"); };
  const Act remove = [](const std::string& path) { return remove_file(path); };
  const Act list = [](const std::string& path) {
    std::vector<std::string> names;
    return list_directory(path, names);
  };
  const Act make = [](const std::string& path) { return make_directories(path); };
  const Act kind = [](const std::string& path) { return static_cast<std::uint32_t>(query_file_kind(path)); };
  const struct {
    const char* what;
    Act act;
    std::string path;
    int answer;
  } cases[] = {{"read", read, closed + "/file", 5},
               {"size", size, closed + "/file", 5},
               {"write", write, closed + "/file", 5},
               {"remove", remove, closed + "/file", 5},
               {"list", list, closed, 5},
               {"make", make, closed + "/a/b", 5},
               {"kind", kind, closed + "/file", static_cast<int>(FileKind::missing)},
               {"read", read, fixed + "/file", 0},
               {"size", size, fixed + "/file", 0},
               {"write", write, fixed + "/file", 5},
               {"write", write, fixed + "/new", 5},
               {"remove", remove, fixed + "/file", 5},
               {"list", list, fixed, 0},
               {"make", make, fixed, 0},
               {"make", make, fixed + "/new", 5}};
  for (const auto& entry : cases) {
    SCOPED_TRACE(entry.what + (" " + entry.path));
    EXPECT_EQ(answer_of_nobody([&entry] { return entry.act(entry.path); }), entry.answer);
  }
  EXPECT_EQ(chmod(closed.c_str(), 0700), 0);
  EXPECT_EQ(chmod(fixed.c_str(), 0700), 0);
}

// Other than on Windows, a file that may not be written may be removed where its directory may be written.
TEST_F(PosixFiles, AreRemovedThoughTheyMayNotBeWritten) {
  const std::string directory = surroundings::scratch_directory();
  const std::string path = directory + "/file";
  surroundings::put_file(path, "content");
  ASSERT_EQ(chmod(directory.c_str(), 0777), 0);
  ASSERT_EQ(chmod(path.c_str(), 0444), 0);
  EXPECT_EQ(answer_of_nobody([&path] { return write_whole_file(path, "x") == 5 ? remove_file(path) : 253; }),
            0);
  EXPECT_EQ(query_file_kind(path), FileKind::missing);
}

// Sets variables that say where the drives are, and puts the former ones back.
class PosixDrives : public surroundings::Arranged {
 protected:
  void SetUp() override {
    Arranged::SetUp();
    for (const char* name : names) {
      const char* value = std::getenv(name);
      former_.push_back(value == nullptr ? std::nullopt : std::optional<std::string>(value));
    }
  }

  void TearDown() override {
    for (std::size_t index = 0; index < former_.size(); ++index) {
      set(names[index], former_[index] ? former_[index]->c_str() : nullptr);
    }
    Arranged::TearDown();
  }

  static void set(const char* name, const char* value) {
    EXPECT_EQ(value == nullptr ? unsetenv(name) : setenv(name, value, 1), 0);
  }

  static constexpr std::array names{"VELMORA_DRIVES", "XDG_STATE_HOME", "HOME"};

 private:
  std::vector<std::optional<std::string>> former_;
};

TEST_F(PosixDrives, AreWhereTheFirstAbsolutePathOfTheVariablesSays) {
  constexpr const char* unset = nullptr;
  const struct {
    const char* drives;
    const char* state;
    const char* home;
    std::string leads_to;
  } cases[] = {{"/d", "/s", "/h", "/d/c/a/b"},
               {unset, "/s", "/h", "/s/velmora/drives/c/a/b"},
               {"", "/s", "/h", "/s/velmora/drives/c/a/b"},
               {"relative/d", "/s", "/h", "/s/velmora/drives/c/a/b"},
               {"./d", "/s", "/h", "/s/velmora/drives/c/a/b"},
               {unset, unset, "/h", "/h/.local/state/velmora/drives/c/a/b"},
               {unset, "", "/h", "/h/.local/state/velmora/drives/c/a/b"},
               {unset, "s", "/h", "/h/.local/state/velmora/drives/c/a/b"},
               {unset, unset, "h", "/.local/state/velmora/drives/c/a/b"},
               {unset, unset, unset, "/.local/state/velmora/drives/c/a/b"},
               {"/", "/s", "/h", "//c/a/b"},
               {"/d\xC3\xB6 d", unset, unset, "/d\xC3\xB6 d/c/a/b"}};
  for (const auto& entry : cases) {
    SCOPED_TRACE(entry.leads_to);
    set("VELMORA_DRIVES", entry.drives);
    set("XDG_STATE_HOME", entry.state);
    set("HOME", entry.home);
    EXPECT_EQ(native_path("C:\\a\\b"), entry.leads_to);
  }
}

TEST_F(PosixDrives, TakeWhatBeginsWithADriveAndItsRootOrAShare) {
  set("VELMORA_DRIVES", "/d");
  const struct {
    const char* path;
    const char* leads_to;
  } cases[] = {{"C:\\", "/d/c/"},
               {"c:\\A", "/d/c/A"},
               {"Z:\\a/b\\c", "/d/z/a/b/c"},
               {"C:\\\xC3\xB6 x", "/d/c/\xC3\xB6 x"},
               {"C:/a", "/d/c/a"},
               {"c:/a\\b/c", "/d/c/a/b/c"},
               {"C:/", "/d/c/"},
               {"C:a", "C:a"},
               {"C:", "C:"},
               {"", ""},
               {"\\a", "\\a"},
               {"\\\\host\\share", "/d/unc/host/share"},
               {"\\\\host\\share\\a/b", "/d/unc/host/share/a/b"},
               {"\\/host/share/a", "/d/unc/host/share/a"},
               {"\\\\", "\\\\"},
               {"\\\\\\a", "\\\\\\a"},
               {"//host/share", "//host/share"},
               {"1:/a", "1:/a"},
               {"a/C:/b", "a/C:/b"},
               {"1:\\a", "1:\\a"},
               {"@:\\a", "@:\\a"},
               {"[:\\a", "[:\\a"},
               {"/a\\b", "/a\\b"},
               {"a/C:\\b", "a/C:\\b"},
               {"CC:\\a", "CC:\\a"}};
  for (const auto& entry : cases) {
    SCOPED_TRACE(entry.path);
    EXPECT_EQ(native_path(entry.path), entry.leads_to);
  }
}

// What each operation does in a directory that is `leads_to` on this system.
void expect_files_in(const std::string& directory, const std::string& leads_to) {
  const std::string path = join_path(directory, "\xC3\xB6.json");
  EXPECT_EQ(write_whole_file(path, "abc"), 3u);
  EXPECT_EQ(remove_file(path), 3u);
  EXPECT_EQ(make_directories(directory), 0u);
  EXPECT_EQ(query_file_kind(directory), FileKind::directory);
  EXPECT_EQ(remove_file(path), 2u);
  EXPECT_EQ(write_whole_file(path, "abc"), 0u);
  EXPECT_EQ(query_file_kind(leads_to + "/\xC3\xB6.json"), FileKind::regular);
  std::uint64_t size = 0;
  EXPECT_EQ(query_file_size(path, size), 0u);
  EXPECT_EQ(size, 3u);
  std::vector<std::string> listed;
  EXPECT_EQ(list_directory(directory, listed), 0u);
  EXPECT_EQ(listed, std::vector<std::string>{"\xC3\xB6.json"});
  InputFile file;
  EXPECT_EQ(open_for_reading(path, file), 0u);
  EXPECT_EQ(remove_file(path), 0u);
}

TEST_F(PosixDrives, HoldFilesForEveryOperation) {
  const std::string drives = surroundings::scratch_directory() + "/drives";
  set("VELMORA_DRIVES", drives.c_str());
  const struct {
    const char* directory;
    const char* leads_to;
  } cases[] = {{"C:\\ProgramData\\Some maker\\store", "/c/ProgramData/Some maker/store"},
               {"D:/Some maker/store", "/d/Some maker/store"},
               {"\\\\server\\share\\store", "/unc/server/share/store"}};
  for (const auto& entry : cases) {
    SCOPED_TRACE(entry.directory);
    expect_files_in(entry.directory, drives + entry.leads_to);
  }
}

}  // namespace
}  // namespace velmora
