// What a file is, where it may not be opened. Wine as root opens every file, so the calls are answered here.
#include <gtest/gtest.h>

#include <windows.h>

#include <optional>
#include <string>

#include "platform/files.h"
#include "platform/surroundings.h"
#include "platform/windows_imports.h"

namespace velmora {
namespace {

// What the calls answer while it is set.
struct Script {
  bool opening_is_denied = false;
  std::optional<DWORD> attributes = std::nullopt;  // of every path
  std::optional<DWORD> error = std::nullopt;       // of a look at attributes
  int openings = 0;
};
Script* script = nullptr;

HANDLE WINAPI create_file(LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES attributes,
                          DWORD disposition, DWORD flags, HANDLE model) {
  if (script != nullptr) {
    ++script->openings;
    if (script->opening_is_denied) {
      SetLastError(ERROR_ACCESS_DENIED);
      return INVALID_HANDLE_VALUE;
    }
  }
  return real_call<decltype(&CreateFileW)>(L"kernel32.dll", "CreateFileW")(path, access, sharing, attributes,
                                                                           disposition, flags, model);
}

BOOL WINAPI get_attributes(LPCWSTR path, GET_FILEEX_INFO_LEVELS level, LPVOID out) {
  if (script != nullptr && script->error) {
    SetLastError(*script->error);
    return FALSE;
  }
  const BOOL done =
      real_call<decltype(&GetFileAttributesExW)>(L"kernel32.dll", "GetFileAttributesExW")(path, level, out);
  if (script != nullptr && script->attributes) {
    static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(out)->dwFileAttributes = *script->attributes;
    return TRUE;
  }
  return done;
}

}  // namespace
}  // namespace velmora

// The imports of the calls, taken over for this program.
extern "C" {
extern decltype(&CreateFileW) __imp_CreateFileW;
decltype(&CreateFileW) __imp_CreateFileW = velmora::create_file;
extern decltype(&GetFileAttributesExW) __imp_GetFileAttributesExW;
decltype(&GetFileAttributesExW) __imp_GetFileAttributesExW = velmora::get_attributes;
}

namespace velmora {
namespace {

class WindowsFileKinds : public surroundings::Arranged {
 protected:
  void SetUp() override {
    surroundings::Arranged::SetUp();
    file_ = join_path(surroundings::scratch_directory(), "file");
    surroundings::put_file(file_, "content");
  }
  FileKind kind_of(const std::string& path, Script& given) {
    script = &given;
    const FileKind kind = query_file_kind(path);
    script = nullptr;
    return kind;
  }
  std::string file_;
};

TEST_F(WindowsFileKinds, AreKnownWhereNothingMayBeOpened) {
  Script denied{.opening_is_denied = true};
  EXPECT_EQ(kind_of(file_, denied), FileKind::regular);
  EXPECT_EQ(kind_of(surroundings::scratch_directory(), denied), FileKind::directory);
  EXPECT_EQ(kind_of(file_ + "x", denied), FileKind::missing);
  EXPECT_EQ(kind_of("NUL", denied), FileKind::other);
  EXPECT_EQ(denied.openings, 0);
}

// A link's own attributes say nothing about what it leads to.
TEST_F(WindowsFileKinds, AreThoseOfWhatALinkLeadsTo) {
  Script link{.attributes = FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY};
  EXPECT_EQ(kind_of(file_, link), FileKind::regular);
  EXPECT_EQ(link.openings, 1);
  link = {.attributes = FILE_ATTRIBUTE_REPARSE_POINT};
  EXPECT_EQ(kind_of(surroundings::scratch_directory(), link), FileKind::directory);
  EXPECT_EQ(kind_of(file_ + "x", link), FileKind::missing);
  link.opening_is_denied = true;
  EXPECT_EQ(kind_of(file_, link), FileKind::missing);
}

TEST_F(WindowsFileKinds, AreMissingWhereTheAttributesCannotBeRead) {
  for (const DWORD error : {DWORD{ERROR_ACCESS_DENIED}, DWORD{ERROR_SHARING_VIOLATION}, DWORD{0}}) {
    Script refused{.error = error};
    EXPECT_EQ(kind_of(file_, refused), FileKind::missing);
    EXPECT_EQ(refused.openings, 0);
  }
}

}  // namespace
}  // namespace velmora
