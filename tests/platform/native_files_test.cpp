// What only a real file system has.
#include "platform/files.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "platform/surroundings.h"

namespace velmora {
namespace {

class NativeFiles : public surroundings::Arranged {};

TEST_F(NativeFiles, ReadsOnInAFileThatWasRemovedOrRenamed) {
  const std::string directory = surroundings::scratch_directory();
  const std::string removed = join_path(directory, "removed");
  const std::string renamed = join_path(directory, "renamed");
  for (const std::string& path : {removed, renamed}) {
    SCOPED_TRACE(path);
    surroundings::put_file(path, "abcdef");
    InputFile file;
    ASSERT_EQ(open_for_reading(path, file), 0u);
    std::array<char, 3> buffer{};
    ASSERT_EQ(read_file_piece(file, buffer.data(), buffer.size()).count, 3u);
    EXPECT_TRUE(path == removed ? surroundings::remove_elsewhere(path)
                                : surroundings::rename_elsewhere(path, path + ".old"));
    const FileRead read = read_file_piece(file, buffer.data(), buffer.size());
    EXPECT_EQ(read.error, 0u);
    EXPECT_EQ(std::string_view(buffer.data(), read.count), "def");
  }
}

TEST_F(NativeFiles, WriteListAndRemoveNamesThatAreNoUtf8) {
  const std::string directory = surroundings::scratch_directory();
  for (const char* name : {"\xFF\xC0page.json", "\xED\xA0\x80.json", "\xC3.json"}) {
    SCOPED_TRACE(name);
    const std::string path = join_path(directory, name);
    ASSERT_EQ(write_whole_file(path, "odd"), 0u);
    std::uint64_t size = 0;
    EXPECT_EQ(query_file_size(path, size), 0u);
    EXPECT_EQ(size, 3u);
    std::vector<std::string> names;
    EXPECT_EQ(list_directory(directory, names), 0u);
    ASSERT_EQ(names.size(), 1u);
    EXPECT_EQ(query_file_kind(join_path(directory, names.front())), FileKind::regular);
    EXPECT_EQ(remove_file(path), 0u);
  }
}

}  // namespace
}  // namespace velmora
