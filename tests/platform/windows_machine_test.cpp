#include <gtest/gtest.h>

#include <windows.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>

#include "platform/clock.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class WindowsMachine : public surroundings::Arranged {};

// Redirects a standard stream into a pipe while it lives.
struct StreamOnPipe {
  DWORD stream;
  HANDLE former = GetStdHandle(stream);
  HANDLE reader = nullptr;
  HANDLE writer = nullptr;

  explicit StreamOnPipe(DWORD wanted) : stream(wanted) {
    EXPECT_TRUE(CreatePipe(&reader, &writer, nullptr, 4096));
    SetStdHandle(stream, writer);
  }
  StreamOnPipe(const StreamOnPipe&) = delete;
  StreamOnPipe& operator=(const StreamOnPipe&) = delete;
  ~StreamOnPipe() {
    SetStdHandle(stream, former);
    CloseHandle(writer);
    close_reader();
  }

  void close_reader() {
    if (reader != nullptr) CloseHandle(std::exchange(reader, nullptr));
  }
  [[nodiscard]] std::string read() const {
    std::array<char, 64> buffer{};
    DWORD count = 0;
    EXPECT_TRUE(ReadFile(reader, buffer.data(), static_cast<DWORD>(buffer.size()), &count, nullptr));
    return std::string(buffer.data(), count);
  }
};

TEST_F(WindowsMachine, WritesBytesAsTheyAreAndAtOnce) {
  const std::string text = "a\nb\r\n\xC3\xB6\n";
  const StreamOnPipe output(STD_OUTPUT_HANDLE);
  const StreamOnPipe error(STD_ERROR_HANDLE);
  EXPECT_TRUE(write_standard_output(text));
  EXPECT_EQ(output.read(), text);
  write_standard_error("2" + text);
  EXPECT_EQ(error.read(), "2" + text);
}

TEST_F(WindowsMachine, ReportsThatItCannotWrite) {
  StreamOnPipe output(STD_OUTPUT_HANDLE);
  output.close_reader();
  EXPECT_FALSE(write_standard_output("lost\n"));
  SetStdHandle(STD_OUTPUT_HANDLE, nullptr);
  EXPECT_FALSE(write_standard_output("lost\n"));
  SetStdHandle(STD_OUTPUT_HANDLE, INVALID_HANDLE_VALUE);
  EXPECT_FALSE(write_standard_output("lost\n"));
  EXPECT_TRUE(write_standard_output(""));
}

TEST_F(WindowsMachine, TurnsTheDialogsOfTheSystemOff) {
  const UINT former = SetErrorMode(SEM_NOGPFAULTERRORBOX);
  prepare_process();
  EXPECT_EQ(GetErrorMode(), static_cast<UINT>(SEM_NOGPFAULTERRORBOX | SEM_FAILCRITICALERRORS));
  SetErrorMode(former);
}

TEST_F(WindowsMachine, ReportsItsPathAsTheSystemDoes) {
  std::array<char, 1024> expected{};
  ASSERT_NE(GetModuleFileNameA(nullptr, expected.data(), static_cast<DWORD>(expected.size())), 0u);
  EXPECT_EQ(own_module_path(), expected.data());
}

TEST_F(WindowsMachine, ReportsItsProcessNumber) { EXPECT_EQ(own_process_id(), GetCurrentProcessId()); }

TEST_F(WindowsMachine, LoadsALibraryByAPathInUtf8) {
  const std::string directory = join_path(surroundings::scratch_directory(), "\xCE\xA9 \xC3\xB6");
  surroundings::put_directory(directory);
  const std::string copy = join_path(directory, "library.dll");
  std::string bytes;
  {
    InputFile file;
    ASSERT_EQ(open_for_reading(surroundings::library_path(), file), 0u);
    std::array<char, 4096> buffer{};
    for (;;) {
      const FileRead read = read_file_piece(file, buffer.data(), buffer.size());
      if (read.count == 0) break;
      bytes.append(buffer.data(), read.count);
    }
  }
  surroundings::put_file(copy, bytes);
  const DynamicLibrary library = load_library(copy);
  ASSERT_TRUE(library.is_open());
  EXPECT_NE(find_library_function(library, "velmora_contract_answer"), nullptr);
}

class WindowsClock : public surroundings::Arranged {};

int minute_of_day(int hour, int minute) { return hour * 60 + minute; }

// The C library follows it, to another zone than the system's.
TEST_F(WindowsClock, ShowsTheTimeOfTheSystemWhateverTheVariableTzSays) {
  for (const char* setting : {"TZ=EST5EDT", "TZ=Asia/Shanghai", "TZ=JST-9"}) {
    SCOPED_TRACE(setting);
    ASSERT_EQ(_putenv(setting), 0);
    _tzset();
    SYSTEMTIME before;
    SYSTEMTIME after;
    std::tm local{};
    GetLocalTime(&before);
    ASSERT_TRUE(read_local_time(local));
    GetLocalTime(&after);
    const int minute = minute_of_day(local.tm_hour, local.tm_min);
    EXPECT_TRUE(minute == minute_of_day(before.wHour, before.wMinute) ||
                minute == minute_of_day(after.wHour, after.wMinute));
  }
  ASSERT_EQ(_putenv("TZ="), 0);
  _tzset();
}

}  // namespace
}  // namespace velmora
