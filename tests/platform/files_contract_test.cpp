#include "platform/files.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/surroundings.h"

namespace velmora {
namespace {

using surroundings::put_directory;
using surroundings::put_file;

constexpr std::uint32_t error_missing = 2;
constexpr std::uint32_t error_denied = 5;

class FilesContract : public surroundings::Arranged {};

std::string scratch_path(std::string_view name) { return join_path(surroundings::scratch_directory(), name); }

InputFile open(const std::string& path) {
  InputFile file;
  EXPECT_EQ(open_for_reading(path, file), 0u);
  return file;
}

// Reads to the end in pieces of `piece` bytes.
std::string read_all(const InputFile& file, std::size_t piece) {
  std::string bytes;
  std::string buffer(piece, '#');
  for (;;) {
    const FileRead read = read_file_piece(file, buffer.data(), buffer.size());
    EXPECT_EQ(read.error, 0u);
    EXPECT_LE(read.count, piece);
    if (read.count == 0) return bytes;
    bytes.append(buffer, 0, read.count);
  }
}

TEST_F(FilesContract, TellsWhatAPathNames) {
  const std::string file = scratch_path("page.html");
  const std::string empty_file = scratch_path("empty");
  const std::string directory = scratch_path("pages");
  put_file(file, "x");
  put_file(empty_file, "");
  put_directory(directory);
  const struct {
    std::string path;
    FileKind kind;
  } cases[] = {{file, FileKind::regular},
               {empty_file, FileKind::regular},
               {directory, FileKind::directory},
               {scratch_path("absent"), FileKind::missing},
               {join_path(scratch_path("absent"), "page.html"), FileKind::missing},
               {join_path(file, "page.html"), FileKind::missing},
               {"", FileKind::missing},
               {surroundings::path_of_other_kind(), FileKind::other}};
  for (const auto& entry : cases) {
    SCOPED_TRACE(entry.path);
    EXPECT_EQ(query_file_kind(entry.path), entry.kind);
  }
}

TEST_F(FilesContract, LeavesTheFormerFileInPlaceWhenTheNextCannotBeOpened) {
  const std::string path = scratch_path("page.html");
  put_file(path, "content");
  put_directory(scratch_path("pages"));
  InputFile file = open(path);
  const auto former = file.native();
  const struct {
    std::string path;
    std::uint32_t error;
  } cases[] = {{scratch_path("absent"), error_missing}, {scratch_path("pages"), error_denied}};
  for (const auto& entry : cases) {
    SCOPED_TRACE(entry.path);
    EXPECT_EQ(open_for_reading(entry.path, file), entry.error);
    EXPECT_TRUE(file.is_open());
    EXPECT_EQ(file.native(), former);
  }
  EXPECT_EQ(read_all(file, 16), "content");
}

TEST_F(FilesContract, ReadsBytesAsTheyAre) {
  std::string every_byte;
  for (int byte = 0; byte < 256; ++byte) every_byte += static_cast<char>(byte);
  const std::string cases[] = {"", "x",
                               "a\nb\r\nc\r\x1a"
                               "d",
                               std::string("\0\0", 2), every_byte};
  const std::string path = scratch_path("bytes");
  for (const std::string& bytes : cases) {
    SCOPED_TRACE(testing::PrintToString(bytes));
    put_file(path, bytes);
    EXPECT_EQ(read_all(open(path), 4096), bytes);
  }
}

TEST_F(FilesContract, ReadsAFileThatIsLargerThanOnePiece) {
  std::string bytes(300'000, '\0');
  for (std::size_t index = 0; index < bytes.size(); ++index) bytes[index] = static_cast<char>(index % 251);
  const std::string path = scratch_path("large");
  put_file(path, bytes);
  for (const std::size_t piece : {std::size_t{1000}, std::size_t{65536}, std::size_t{299'999},
                                  std::size_t{300'000}, std::size_t{300'001}}) {
    SCOPED_TRACE(piece);
    EXPECT_EQ(read_all(open(path), piece), bytes);
  }
}

TEST_F(FilesContract, GivesTheEndOfTheFileAgainAndAgain) {
  const std::string path = scratch_path("short");
  put_file(path, "ab");
  const InputFile file = open(path);
  EXPECT_EQ(read_all(file, 2), "ab");
  EXPECT_EQ(read_all(file, 2), "");
  EXPECT_EQ(read_all(file, 2), "");
}

TEST_F(FilesContract, SeesWhatAFileGainsWhileItIsRead) {
  const std::string path = scratch_path("growing");
  put_file(path, "first");
  const InputFile file = open(path);
  EXPECT_EQ(read_all(file, 64), "first");
  surroundings::append_to_file(path, " second");
  EXPECT_EQ(read_all(file, 64), " second");
}

TEST_F(FilesContract, ReadsTwoOpenFilesIndependently) {
  const std::string path = scratch_path("twice");
  put_file(path, "abcdef");
  const InputFile one = open(path);
  const InputFile other = open(path);
  char byte = '#';
  EXPECT_EQ(read_file_piece(one, &byte, 1).count, 1u);
  EXPECT_EQ(byte, 'a');
  EXPECT_EQ(read_all(other, 64), "abcdef");
  EXPECT_EQ(read_all(one, 64), "bcdef");
}

TEST_F(FilesContract, TakesPathsAsUtf8) {
  // Latin, Greek, Chinese and a character outside the basic plane; blanks.
  const std::string directory = scratch_path(
      "Gr\xC3\xB6\xC3\x9F"
      "e \xCE\xA9");
  put_directory(directory);
  const std::string path = join_path(directory, "\xE9\xA1\xB5 \xF0\x9D\x84\x9E.html");
  EXPECT_EQ(query_file_kind(path), FileKind::missing);
  put_file(path, "named");
  EXPECT_EQ(query_file_kind(directory), FileKind::directory);
  EXPECT_EQ(query_file_kind(path), FileKind::regular);
  EXPECT_EQ(read_all(open(path), 64), "named");
}

TEST_F(FilesContract, LetsOthersRemoveAFileThatIsOpen) {
  const std::string path = scratch_path("page.html");
  put_file(path, "content");
  InputFile file = open(path);
  EXPECT_TRUE(surroundings::remove_elsewhere(path));
  // Not before: Windows may keep the name for as long as anyone has the file open.
  file.close();
  EXPECT_EQ(query_file_kind(path), FileKind::missing);
  EXPECT_EQ(open_for_reading(path, file), error_missing);
}

TEST_F(FilesContract, LetsOthersRenameAndReplaceAFileThatIsOpen) {
  const std::string path = scratch_path("page.html");
  const std::string moved = scratch_path("old.html");
  put_file(path, "old");
  InputFile file = open(path);
  EXPECT_TRUE(surroundings::rename_elsewhere(path, moved));
  put_file(path, "new");
  file.close();
  EXPECT_EQ(read_all(open(path), 64), "new");
  EXPECT_EQ(read_all(open(moved), 64), "old");
}

TEST_F(FilesContract, LetsOthersWriteAFileThatIsOpen) {
  const std::string path = scratch_path("page.html");
  put_file(path, "old");
  const InputFile file = open(path);
  put_file(path, "NEW");
  EXPECT_EQ(read_all(file, 64), "NEW");
}

TEST_F(FilesContract, JoinsPathsAsTheSystemDoes) {
  for (const auto& entry : surroundings::join_cases()) {
    SCOPED_TRACE("'" + entry.directory + "' and '" + entry.name + "'");
    EXPECT_EQ(join_path(entry.directory, entry.name), entry.joined);
  }
}

TEST_F(FilesContract, FindsTheParentOfAPath) {
  for (const auto& entry : surroundings::parent_cases()) {
    SCOPED_TRACE("'" + entry.path + "'");
    EXPECT_EQ(parent_path(entry.path), entry.parent);
  }
}

TEST_F(FilesContract, FindsTheDirectoryThatWasJoined) {
  const std::string directory = surroundings::scratch_directory();
  EXPECT_EQ(parent_path(join_path(directory, "page.html")), directory);
}

}  // namespace
}  // namespace velmora
