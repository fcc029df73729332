#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <string>

#include "platform/files.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class PosixFiles : public surroundings::Arranged {};

TEST_F(PosixFiles, OpenAPipeInAFilesPlaceWithoutWaitingForAWriter) {
  const std::string path = surroundings::path_of_other_kind();
  InputFile file;
  ASSERT_EQ(open_for_reading(path, file), 0u);
  char byte = '#';
  const FileRead read = read_file_piece(file, &byte, 1);
  EXPECT_EQ(read.count, 0u);
  EXPECT_EQ(read.error, 0u);
}

TEST_F(PosixFiles, AnswerAnErrorForAPipeWhoseWriterSaysNothing) {
  const std::string path = surroundings::path_of_other_kind();
  InputFile file;
  ASSERT_EQ(open_for_reading(path, file), 0u);
  const int writer = open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK);
  ASSERT_GE(writer, 0);
  char byte = '#';
  const FileRead read = read_file_piece(file, &byte, 1);
  close(writer);
  EXPECT_EQ(read.count, 0u);
  EXPECT_NE(read.error, 0u);
}

TEST_F(PosixFiles, AreNotInheritedByProgramsThatWeStart) {
  const std::string path = surroundings::scratch_directory() + "/page.html";
  surroundings::put_file(path, "x");
  InputFile file;
  ASSERT_EQ(open_for_reading(path, file), 0u);
  EXPECT_EQ(fcntl(static_cast<int>(file.native()), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(PosixFiles, AreLookedAtThroughLinks) {
  const std::string directory = surroundings::scratch_directory();
  surroundings::put_file(directory + "/page.html", "linked");
  const struct {
    const char* target;
    const char* name;
    FileKind kind;
  } cases[] = {{"page.html", "to-file", FileKind::regular},
               {".", "to-directory", FileKind::directory},
               {"absent", "to-nothing", FileKind::missing},
               {"to-itself", "to-itself", FileKind::missing}};
  for (const auto& entry : cases) {
    SCOPED_TRACE(entry.name);
    const std::string link = directory + "/" + entry.name;
    ASSERT_EQ(symlink(entry.target, link.c_str()), 0);
    EXPECT_EQ(query_file_kind(link), entry.kind);
  }
}

TEST_F(PosixFiles, TakePathsThatAreNoUtf8AsTheyStand) {
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

}  // namespace
}  // namespace velmora
