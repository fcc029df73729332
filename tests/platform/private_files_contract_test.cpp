#include "platform/private_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "platform/command_surroundings.h"
#include "platform/environment_surroundings.h"
#include "platform/files.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

constexpr std::size_t most_bytes_read = 65536;

class PrivateFilesContract : public surroundings::Arranged {
 protected:
  static std::string path(std::string_view name = "run.json") {
    return join_path(surroundings::scratch_directory(), name);
  }
  static HeldFile hold(const std::string& path) {
    HeldFile file;
    EXPECT_EQ(hold_private_file(path, file), 0u);
    EXPECT_TRUE(file.is_open());
    return file;
  }
  static void expect_read(const std::string& path, bool is_held, std::string_view bytes) {
    const PrivateFileRead read = read_private_file(path);
    EXPECT_EQ(read.error, 0u);
    EXPECT_EQ(read.is_held, is_held);
    EXPECT_EQ(read.bytes, bytes);
  }
  static void expect_refused(const std::string& path, std::uint32_t error) {
    const PrivateFileRead read = read_private_file(path);
    EXPECT_EQ(read.error, error);
    EXPECT_FALSE(read.is_held);
    EXPECT_EQ(read.bytes, "");
  }
};

TEST_F(PrivateFilesContract, NamesAFolderOfThisUser) {
  const surroundings::NoPlace none = surroundings::remove_private_places();
  EXPECT_EQ(private_directory(), "");
  const surroundings::PrivatePlace place = surroundings::private_place();
  surroundings::set_environment(place.variable, u"relative");
  EXPECT_EQ(private_directory(), "");
  surroundings::set_environment(place.variable, place.text);
  EXPECT_EQ(private_directory(), place.directory);
  surroundings::set_environment(place.variable, u"");
}

TEST_F(PrivateFilesContract, MakesAFolderAndItsParents) {
  const std::string folder = join_path(path("one"), "two");
  EXPECT_EQ(make_private_directory(folder), 0u);
  EXPECT_EQ(query_file_kind(folder), FileKind::directory);
  EXPECT_TRUE(surroundings::is_private(folder));
  EXPECT_EQ(make_private_directory(folder), 0u);
  const HeldFile file = hold(join_path(folder, "run.json"));
  EXPECT_EQ(query_file_kind(join_path(folder, "run.json")), FileKind::regular);
}

TEST_F(PrivateFilesContract, MakesAnExistingFolderPrivate) {
  surroundings::put_directory(path("folder"));
  surroundings::open_to_others(path("folder"));
  EXPECT_EQ(make_private_directory(path("folder")), 0u);
  EXPECT_TRUE(surroundings::is_private(path("folder")));
}

TEST_F(PrivateFilesContract, MakesNoFolderInPlaceOfAFile) {
  surroundings::put_file(path("file"), "content");
  EXPECT_EQ(make_private_directory(path("file")), 183u);
  EXPECT_EQ(make_private_directory(join_path(path("file"), "folder")), 183u);
  EXPECT_EQ(make_private_directory(""), 3u);
  EXPECT_EQ(query_file_kind(path("file")), FileKind::regular);
}

TEST_F(PrivateFilesContract, HoldsANewFileUntilItsOwnerIsClosed) {
  HeldFile file = hold(path());
  EXPECT_TRUE(surroundings::is_private(path()));
  expect_read(path(), true, "");
  ASSERT_EQ(write_held_file(file, "{\"port\":17831}\n"), 0u);
  expect_read(path(), true, "{\"port\":17831}\n");
  expect_read(path(), true, "{\"port\":17831}\n");
  file.close();
  EXPECT_EQ(query_file_kind(path()), FileKind::missing);
  expect_refused(path(), 2);
}

TEST_F(PrivateFilesContract, ReplacesTheContents) {
  const HeldFile file = hold(path());
  const std::string long_text(5000, 'x');
  for (const std::string& text : {std::string("first"), long_text, std::string("2"), std::string(),
                                  std::string("\0\r\n\x1A\xFF", 5), std::string("last")}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(write_held_file(file, text), 0u);
    expect_read(path(), true, text);
  }
}

TEST_F(PrivateFilesContract, RefusesASecondHolderAndLeavesTheFirst) {
  const HeldFile file = hold(path());
  ASSERT_EQ(write_held_file(file, "first"), 0u);
  HeldFile other = hold(path("other"));
  const auto former = other.native();
  EXPECT_EQ(hold_private_file(path(), other), 32u);
  EXPECT_EQ(other.native(), former);
  EXPECT_EQ(write_private_file(path(), "second"), 32u);
  expect_read(path(), true, "first");
  EXPECT_FALSE(query_file_kind(path("run.json.part")) == FileKind::regular);
}

TEST_F(PrivateFilesContract, SeesTheFileOfAnotherProcess) {
  surroundings::Holder holder = surroundings::hold_elsewhere_file(path(), "theirs");
  expect_read(path(), true, "theirs");
  HeldFile file;
  EXPECT_EQ(hold_private_file(path(), file), 32u);
  EXPECT_FALSE(file.is_open());
  EXPECT_EQ(write_private_file(path(), "ours"), 32u);
  expect_read(path(), true, "theirs");
  holder.close();
  if (surroundings::removes_files_of_killed()) {
    expect_refused(path(), 2);
  } else {
    expect_read(path(), false, "theirs");
  }
  file = hold(path());
  expect_read(path(), true, "");
}

TEST_F(PrivateFilesContract, ReplacesAFileThatNobodyHolds) {
  surroundings::put_file(path(), "of a program that was killed");
  const HeldFile file = hold(path());
  EXPECT_TRUE(surroundings::is_private(path()));
  expect_read(path(), true, "");
}

TEST_F(PrivateFilesContract, HoldsNothingWhereNoFileCanBe) {
  surroundings::put_directory(path("folder"));
  const struct {
    std::string path;
    std::uint32_t error;
  } rows[] = {{path("folder"), 5}, {join_path(path("missing"), "run.json"), 3}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    HeldFile file;
    EXPECT_EQ(hold_private_file(row.path, file), row.error);
    EXPECT_FALSE(file.is_open());
    EXPECT_EQ(write_private_file(row.path, "x"), row.error);
    expect_refused(row.path, row.error);
  }
  EXPECT_EQ(query_file_kind(path("folder")), FileKind::directory);
  expect_refused(path("missing"), 2);
}

TEST_F(PrivateFilesContract, RefusesAFileThatOthersMayRead) {
  ASSERT_EQ(write_private_file(path(), "secret"), 0u);
  expect_read(path(), false, "secret");
  surroundings::open_to_others(path());
  expect_refused(path(), 1307);
}

TEST_F(PrivateFilesContract, WritesAWholeFileAndReplacesIt) {
  for (const std::string& text : {std::string("first and longer"), std::string("2"), std::string()}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(write_private_file(path(), text), 0u);
    EXPECT_TRUE(surroundings::is_private(path()));
    expect_read(path(), false, text);
  }
  // A file that others may read becomes private.
  surroundings::open_to_others(path());
  EXPECT_EQ(write_private_file(path(), "mine"), 0u);
  expect_read(path(), false, "mine");
  std::vector<std::string> names;
  EXPECT_EQ(list_directory(surroundings::scratch_directory(), names), 0u);
  EXPECT_EQ(names, std::vector<std::string>{"run.json"});
  EXPECT_EQ(remove_file(path()), 0u);
  expect_refused(path(), 2);
}

TEST_F(PrivateFilesContract, ReadsUpToItsLimit) {
  for (const std::size_t size :
       {most_bytes_read - 1, most_bytes_read, most_bytes_read + 1, 3 * most_bytes_read}) {
    SCOPED_TRACE(size);
    ASSERT_EQ(write_private_file(path(), std::string(size, 'x')), 0u);
    const PrivateFileRead read = read_private_file(path());
    EXPECT_EQ(read.error, 0u);
    EXPECT_EQ(read.bytes.size(), std::min(size, most_bytes_read));
  }
}

TEST_F(PrivateFilesContract, ReleasesTheFormerFileByAssignment) {
  HeldFile file = hold(path("former"));
  HeldFile other = hold(path("kept"));
  file = std::move(other);
  EXPECT_EQ(query_file_kind(path("former")), FileKind::missing);
  expect_read(path("kept"), true, "");
  HeldFile& same = file;
  file = std::move(same);
  EXPECT_TRUE(file.is_open());
  expect_read(path("kept"), true, "");
}

}  // namespace
}  // namespace velmora
