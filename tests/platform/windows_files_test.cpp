#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

constexpr DWORD share_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

class WindowsFiles : public surroundings::Arranged {};

// For names of ASCII letters.
std::wstring wide(const std::string& path) { return {path.begin(), path.end()}; }

std::string path_of(const std::string& name) { return join_path(surroundings::scratch_directory(), name); }

// What the operations say of one name.
struct Answers {
  std::string path;
  FileKind kind = FileKind::regular;
  std::uint32_t size_error = 0;
  std::uint32_t write_error = 0;
  std::uint32_t remove_error = 0;
};

// As the service does it: a device is not removed.
DWORD WINAPI ask(void* parameter) {
  auto& answers = *static_cast<Answers*>(parameter);
  std::uint64_t size = 0;
  answers.kind = query_file_kind(answers.path);
  answers.size_error = query_file_size(answers.path, size);
  answers.write_error = write_whole_file(answers.path, "abc");
  if (answers.kind == FileKind::other) return 0;
  answers.remove_error = remove_file(answers.path);
  return 0;
}

TEST_F(WindowsFiles, AnswerForADevicesNameWithoutWaitingForTheDevice) {
  for (const char* name : {"NUL", "CON", "AUX", "PRN", "COM1", "COM9", "LPT1"}) {
    for (const char* extension : {"", ".json"}) {
      for (const bool in_directory : {false, true}) {
        Answers answers;
        answers.path = in_directory ? path_of(std::string(name) + extension) : std::string(name) + extension;
        SCOPED_TRACE(answers.path);
        const HANDLE thread = CreateThread(nullptr, 0, ask, &answers, 0, nullptr);
        ASSERT_NE(thread, nullptr);
        if (WaitForSingleObject(thread, 20'000) != WAIT_OBJECT_0) {
          // It would use `answers` when they are gone.
          TerminateThread(thread, 1);
          ADD_FAILURE() << "waited for the device";
        }
        CloseHandle(thread);
        // A newer Windows knows such names as devices only without a directory and an extension, and else has
        // a file.
        const bool is_device = surroundings::runs_under_wine() || answers.kind == FileKind::other;
        EXPECT_EQ(answers.kind, is_device ? FileKind::other : FileKind::missing);
        EXPECT_EQ(answers.write_error, is_device ? 5u : 0u);
      }
    }
  }
}

TEST_F(WindowsFiles, AreRefusedWhereAnotherProgramSharesThemWithNobody) {
  const std::string path = path_of("held");
  surroundings::put_file(path, "content");
  const HANDLE holder = CreateFileW(wide(path).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(holder, INVALID_HANDLE_VALUE);
  InputFile file;
  std::uint64_t size = 0;
  EXPECT_EQ(open_for_reading(path, file), 32u);
  EXPECT_EQ(write_whole_file(path, "x"), 32u);
  EXPECT_EQ(remove_file(path), 32u);
  EXPECT_EQ(query_file_kind(path), FileKind::regular);
  EXPECT_EQ(query_file_size(path, size), 0u);
  EXPECT_EQ(size, 7u);
  CloseHandle(holder);
  EXPECT_EQ(open_for_reading(path, file), 0u);
}

TEST_F(WindowsFiles, AreWrittenAndRemovedWhereAnotherProgramSharesThemWithAll) {
  const std::string path = path_of("held");
  surroundings::put_file(path, "content");
  const HANDLE holder = CreateFileW(wide(path).c_str(), GENERIC_READ | GENERIC_WRITE, share_all, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(holder, INVALID_HANDLE_VALUE);
  InputFile file;
  EXPECT_EQ(open_for_reading(path, file), 0u);
  EXPECT_EQ(write_whole_file(path, "x"), 0u);
  EXPECT_EQ(remove_file(path), 0u);
  CloseHandle(holder);
  file.close();
  EXPECT_EQ(query_file_kind(path), FileKind::missing);
}

TEST_F(WindowsFiles, ThatAreReadOnlyAreNeitherWrittenNorRemoved) {
  const std::string path = path_of("fixed");
  surroundings::put_file(path, "content");
  ASSERT_TRUE(SetFileAttributesW(wide(path).c_str(), FILE_ATTRIBUTE_READONLY));
  InputFile file;
  EXPECT_EQ(open_for_reading(path, file), 0u);
  EXPECT_EQ(remove_file(path), 5u);
  EXPECT_EQ(query_file_kind(path), FileKind::regular);
  // Wine leaves it to the system below, where root may write everything.
  if (!surroundings::runs_under_wine()) {
    EXPECT_EQ(write_whole_file(path, "x"), 5u);
  }
  file.close();
  EXPECT_TRUE(SetFileAttributesW(wide(path).c_str(), FILE_ATTRIBUTE_NORMAL));
}

TEST_F(WindowsFiles, OfANameThatIsNoUtf16AreListedWithReplacementCharacters) {
  const std::wstring directory = wide(surroundings::scratch_directory());
  const struct {
    const wchar_t* name;
    const char* listed;
  } cases[] = {{L"a\xD800.json", "a\xEF\xBF\xBD.json"},
               {L"\xDC00", "\xEF\xBF\xBD"},
               {L"\xDC00\xD800", "\xEF\xBF\xBD\xEF\xBF\xBD"}};
  std::vector<std::string> expected;
  for (const auto& entry : cases) {
    const HANDLE file = CreateFileW((directory + L"\\" + entry.name).c_str(), GENERIC_WRITE, share_all,
                                    nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    // Wine keeps names as UTF-8 and has none for these.
    EXPECT_EQ(file == INVALID_HANDLE_VALUE, surroundings::runs_under_wine());
    if (file == INVALID_HANDLE_VALUE) continue;
    CloseHandle(file);
    expected.push_back(entry.listed);
  }
  std::vector<std::string> names;
  EXPECT_EQ(list_directory(surroundings::scratch_directory(), names), 0u);
  std::sort(names.begin(), names.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(names, expected);
  for (const std::string& name : names) EXPECT_EQ(query_file_kind(path_of(name)), FileKind::missing);
}

TEST_F(WindowsFiles, AreFoundWithEitherSeparatorAndInAnyCase) {
  std::string path = path_of("page.html");
  surroundings::put_file(path, "x");
  std::replace(path.begin(), path.end(), '\\', '/');
  EXPECT_EQ(query_file_kind(path), FileKind::regular);
  EXPECT_EQ(query_file_kind(path_of("PAGE.html")), FileKind::regular);
}

}  // namespace
}  // namespace velmora
