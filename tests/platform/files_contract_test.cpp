#include "platform/files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/surroundings.h"

namespace velmora {
namespace {

using surroundings::put_directory;
using surroundings::put_file;

constexpr std::uint32_t error_missing = 2;
constexpr std::uint32_t error_no_path = 3;
constexpr std::uint32_t error_denied = 5;
constexpr std::uint32_t error_exists = 183;
constexpr std::uint32_t error_not_a_directory = 267;

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

std::vector<std::string> sorted_names(const std::string& directory) {
  std::vector<std::string> names{"former"};
  EXPECT_EQ(list_directory(directory, names), 0u);
  std::sort(names.begin(), names.end());
  return names;
}

std::string content_of(const std::string& path) { return read_all(open(path), 4096); }

TEST_F(FilesContract, ReportsTheKindOfAPath) {
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

TEST_F(FilesContract, ReadsAWholeFileInOneCall) {
  std::string all_bytes;
  for (int round = 0; round < 300; ++round) {
    for (int value = 0; value < 256; ++value) all_bytes += static_cast<char>(value);
  }
  const std::string path = scratch_path("whole");
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{16383}, std::size_t{16384},
                                 std::size_t{16385}, std::size_t{32768}, all_bytes.size()}) {
    SCOPED_TRACE(size);
    put_file(path, all_bytes.substr(0, size));
    std::string bytes = "former";
    EXPECT_EQ(read_whole_file(path, bytes), 0u);
    EXPECT_EQ(bytes, all_bytes.substr(0, size));
  }
}

TEST_F(FilesContract, GivesNoBytesOfAFileThatCannotBeOpened) {
  put_directory(scratch_path("directory"));
  const struct {
    std::string path;
    std::uint32_t error;
  } cases[] = {{scratch_path("missing"), error_missing},
               {scratch_path(join_path("none", "missing")), error_no_path},
               {"", error_no_path},
               {scratch_path("directory"), error_denied}};
  for (const auto& [path, error] : cases) {
    SCOPED_TRACE(path);
    std::string bytes = "former";
    EXPECT_EQ(read_whole_file(path, bytes), error);
    EXPECT_EQ(bytes, "");
  }
}

TEST_F(FilesContract, SeesTheEndOfAFileUntilItGrowsOrIsRewritten) {
  const std::string path = scratch_path("short");
  put_file(path, "ab");
  const InputFile file = open(path);
  for (const char* expected : {"ab", "", ""}) EXPECT_EQ(read_all(file, 2), expected);
  surroundings::append_to_file(path, " second");
  EXPECT_EQ(read_all(file, 64), " second");
  const InputFile other = open(path);
  put_file(path, "NEW");
  EXPECT_EQ(read_all(other, 64), "NEW");
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
  EXPECT_EQ(write_whole_file(path, "again"), 0u);
  EXPECT_EQ(content_of(path), "again");
  EXPECT_EQ(sorted_names(directory), std::vector<std::string>{"\xE9\xA1\xB5 \xF0\x9D\x84\x9E.html"});
  EXPECT_EQ(remove_file(path), 0u);
  EXPECT_EQ(sorted_names(directory), std::vector<std::string>{});
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

// One round for each operation, in a directory of its own that holds a file, a directory with a file in it
// and an empty one.
TEST_F(FilesContract, ReturnsTheSameErrorsOnEverySystem) {
  const std::string file = "file";
  const std::string inside = join_path("full", "inside");
  const struct {
    std::string path;  // below the round's directory; empty: the empty path
    std::uint32_t read, size, write, remove, list, make;
  } cases[] = {
      {file, 0, 0, 0, 0, error_not_a_directory, error_exists},
      {inside, 0, 0, 0, 0, error_not_a_directory, error_exists},
      {"full", error_denied, error_denied, error_denied, error_denied, 0, 0},
      {"bare", error_denied, error_denied, error_denied, error_denied, 0, 0},
      {"absent", error_missing, error_missing, 0, error_missing, error_no_path, 0},
      {join_path("bare", "absent"), error_missing, error_missing, 0, error_missing, error_no_path, 0},
      {join_path("absent", "x"), error_no_path, error_no_path, error_no_path, error_no_path, error_no_path,
       0},
      {join_path(join_path("absent", "x"), "y"), error_no_path, error_no_path, error_no_path, error_no_path,
       error_no_path, 0},
      {join_path(file, "x"), error_no_path, error_no_path, error_no_path, error_no_path, error_no_path,
       error_exists},
      {join_path(join_path(file, "x"), "y"), error_no_path, error_no_path, error_no_path, error_no_path,
       error_no_path, error_exists},
      {"", error_no_path, error_no_path, error_no_path, error_no_path, error_no_path, error_no_path},
  };
  int round = 0;
  for (const auto& entry : cases) {
    SCOPED_TRACE("'" + entry.path + "'");
    const auto path_of_next_round = [&]() {
      const std::string directory = scratch_path("round-" + std::to_string(++round));
      put_directory(directory);
      put_file(join_path(directory, file), "content");
      put_directory(join_path(directory, "full"));
      put_file(join_path(directory, inside), "content");
      put_directory(join_path(directory, "bare"));
      return entry.path.empty() ? std::string() : join_path(directory, entry.path);
    };
    InputFile opened;
    EXPECT_EQ(open_for_reading(path_of_next_round(), opened), entry.read);
    std::uint64_t size = 77;
    EXPECT_EQ(query_file_size(path_of_next_round(), size), entry.size);
    EXPECT_EQ(size, entry.size == 0 ? 7u : 77u);
    const std::string written = path_of_next_round();
    const FileKind written_kind = query_file_kind(written);
    EXPECT_EQ(write_whole_file(written, "abc"), entry.write);
    EXPECT_EQ(query_file_kind(written), entry.write == 0 ? FileKind::regular : written_kind);
    const std::string removed = path_of_next_round();
    const FileKind removed_kind = query_file_kind(removed);
    EXPECT_EQ(remove_file(removed), entry.remove);
    EXPECT_EQ(query_file_kind(removed), entry.remove == 0 ? FileKind::missing : removed_kind);
    std::vector<std::string> names{"former"};
    EXPECT_EQ(list_directory(path_of_next_round(), names), entry.list);
    EXPECT_EQ(names, entry.path == "full" ? std::vector<std::string>{"inside"} : std::vector<std::string>{});
    const std::string made = path_of_next_round();
    const FileKind made_kind = query_file_kind(made);
    EXPECT_EQ(make_directories(made), entry.make);
    EXPECT_EQ(query_file_kind(made), entry.make == 0 ? FileKind::directory : made_kind);
  }
}

TEST_F(FilesContract, LeavesADirectoryThatIsToBeRemovedAsAFile) {
  const std::string full = scratch_path("full");
  put_directory(full);
  put_file(join_path(full, "inside"), "content");
  EXPECT_EQ(remove_file(full), error_denied);
  EXPECT_EQ(sorted_names(full), std::vector<std::string>{"inside"});
  EXPECT_EQ(content_of(join_path(full, "inside")), "content");
}

TEST_F(FilesContract, ReportsTheSizeOfAFile) {
  const std::string path = scratch_path("sized");
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{70'000}}) {
    SCOPED_TRACE(size);
    put_file(path, std::string(size, 'x'));
    std::uint64_t reported = 77;
    EXPECT_EQ(query_file_size(path, reported), 0u);
    EXPECT_EQ(reported, size);
  }
}

TEST_F(FilesContract, ReportsTheSizeOfAFileAbove4GiB) {
  const std::string path = scratch_path("sparse");
  for (const std::uint64_t size : {0xFFFFFFFFull, 0x100000000ull, 0x123456789ull}) {
    SCOPED_TRACE(size);
    surroundings::put_sparse_file(path, size);
    std::uint64_t reported = 77;
    EXPECT_EQ(query_file_size(path, reported), 0u);
    EXPECT_EQ(reported, size);
    EXPECT_EQ(query_file_kind(path), FileKind::regular);
  }
}

TEST_F(FilesContract, WritesBytesAsTheyAre) {
  std::string every_byte;
  for (int byte = 0; byte < 256; ++byte) every_byte += static_cast<char>(byte);
  EXPECT_NE(write_whole_file(surroundings::path_of_other_kind(), "abc"), 0u);
  const std::string path = scratch_path("written");
  // The last ones replace a longer file.
  const std::string cases[] = {
      "", "x", "a\nb\r\nc\r\x1a", std::string("\0\0", 2), every_byte, std::string(300'000, 'y'), "short", ""};
  for (const std::string& bytes : cases) {
    SCOPED_TRACE(testing::PrintToString(bytes.substr(0, 300)));
    EXPECT_EQ(write_whole_file(path, bytes), 0u);
    EXPECT_EQ(content_of(path), bytes);
  }
  EXPECT_EQ(remove_file(path), 0u);
  EXPECT_EQ(query_file_kind(path), FileKind::missing);
}

TEST_F(FilesContract, WritesAndRemovesAFileThatOthersHaveOpen) {
  const std::string path = scratch_path("shared");
  put_file(path, "old");
  InputFile file = open(path);
  EXPECT_EQ(write_whole_file(path, "NEW"), 0u);
  EXPECT_EQ(read_all(file, 64), "NEW");
  std::uint64_t size = 0;
  EXPECT_EQ(query_file_size(path, size), 0u);
  EXPECT_EQ(remove_file(path), 0u);
  // Not before: Windows may keep the name for as long as anyone has the file open.
  file.close();
  EXPECT_EQ(query_file_kind(path), FileKind::missing);
}

TEST_F(FilesContract, ListsTheNamesOfADirectoryAndOfNoOther) {
  const std::string directory = scratch_path("listed");
  put_directory(directory);
  EXPECT_EQ(sorted_names(directory), std::vector<std::string>{});
  const std::string names[] = {".hidden", "a", "b.json", "c d", "\xE9\xA1\xB5.json"};
  for (const std::string& name : names) put_file(join_path(directory, name), "x");
  put_directory(join_path(directory, "below"));
  put_file(join_path(join_path(directory, "below"), "deeper"), "x");
  put_file(directory + "-beside", "x");
  EXPECT_EQ(sorted_names(directory),
            (std::vector<std::string>{".hidden", "a", "b.json", "below", "c d", "\xE9\xA1\xB5.json"}));
}

TEST_F(FilesContract, ListsMoreNamesThanOneReadingOfTheSystemGives) {
  const std::string directory = scratch_path("listed");
  put_directory(directory);
  std::vector<std::string> names;
  for (int number = 1000; number < 2500; ++number) names.push_back("name " + std::to_string(number));
  for (const std::string& name : names) put_file(join_path(directory, name), "");
  EXPECT_EQ(sorted_names(directory), names);
}

TEST_F(FilesContract, MakesADirectoryWithAllThatAreMissingAboveIt) {
  const std::string above = scratch_path(
      "Gr\xC3\xB6\xC3\x9F"
      "e");
  const std::string below = join_path(join_path(above, "b b"), "\xE9\xA1\xB5");
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    EXPECT_EQ(make_directories(below), 0u);
    EXPECT_EQ(query_file_kind(below), FileKind::directory);
    EXPECT_EQ(make_directories(above), 0u);
  }
  EXPECT_EQ(write_whole_file(join_path(below, "x"), "abc"), 0u);
}

TEST_F(FilesContract, MakesADirectoryWithATrailingSeparatorAndAcceptsTheRoot) {
  const std::string directory = join_path(join_path(scratch_path("a"), "b"), "");
  EXPECT_EQ(make_directories(directory), 0u);
  EXPECT_EQ(query_file_kind(parent_path(directory)), FileKind::directory);
  EXPECT_EQ(make_directories(directory), 0u);
  std::string root = surroundings::scratch_directory();
  while (parent_path(root) != root) root = parent_path(root);
  EXPECT_EQ(make_directories(root), 0u);
}

TEST_F(FilesContract, MakesNothingBelowAFile) {
  const std::string file = scratch_path("file");
  put_file(file, "content");
  EXPECT_EQ(make_directories(join_path(join_path(file, "a"), "b")), error_exists);
  EXPECT_EQ(sorted_names(surroundings::scratch_directory()), std::vector<std::string>{"file"});
  EXPECT_EQ(content_of(file), "content");
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
  const std::string directory = surroundings::scratch_directory();
  EXPECT_EQ(parent_path(join_path(directory, "page.html")), directory);
}

}  // namespace
}  // namespace velmora
