// What only a real system has: files, random bytes, and lists of processes that are copies (the machine in
// memory walks what is there at the moment).
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files.h"
#include "platform/machine.h"
#include "platform/processes.h"
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

TEST(NativeMachine, FillsBuffersDifferentlyEachTime) {
  std::array<unsigned char, 16> one{};
  std::array<unsigned char, 16> other{};
  ASSERT_TRUE(fill_random(one.data(), one.size()));
  ASSERT_TRUE(fill_random(other.data(), other.size()));
  EXPECT_NE(one, other);
}

class NativeProcessLists : public surroundings::Arranged {};

std::vector<std::uint32_t> ids_in(const ProcessSnapshot& snapshot) {
  std::vector<std::uint32_t> ids;
  ProcessEntry entry;
  for (bool more = first_process(snapshot, entry); more; more = next_process(snapshot, entry)) {
    ids.push_back(entry.process_id);
  }
  return ids;
}

std::vector<std::u16string> paths_in(const ModuleSnapshot& snapshot) {
  std::vector<std::u16string> paths;
  ModuleEntry entry;
  for (bool more = first_module(snapshot, entry) == 0; more; more = next_module(snapshot, entry)) {
    paths.push_back(entry.path);
  }
  return paths;
}

TEST_F(NativeProcessLists, StayAsTheyWereWhenTheyWereMade) {
  surroundings::ListedProcess process = surroundings::start_listed_process();
  ProcessSnapshot processes;
  ModuleSnapshot modules;
  ASSERT_EQ(snapshot_processes(processes), 0u);
  ASSERT_EQ(snapshot_modules(process.native(), modules), 0u);
  const auto ids = ids_in(processes);
  const auto paths = paths_in(modules);
  EXPECT_FALSE(paths.empty());
  process.close();
  EXPECT_EQ(ids_in(processes), ids);
  EXPECT_EQ(paths_in(modules), paths);
}

}  // namespace
}  // namespace velmora
