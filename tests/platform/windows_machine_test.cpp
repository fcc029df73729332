#include <gtest/gtest.h>

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <array>
#include <cstdio>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "platform/machine.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class WindowsMachine : public surroundings::Arranged {};

// Standard output lies on the writing end of a pipe for as long as this lives.
struct OutputOnPipe {
  int former = _dup(_fileno(stdout));
  int reader = -1;

  OutputOnPipe() {
    std::fflush(stdout);
    int ends[2];
    EXPECT_EQ(_pipe(ends, 4096, _O_TEXT | _O_NOINHERIT), 0);
    reader = ends[0];
    _setmode(reader, _O_BINARY);
    _dup2(ends[1], _fileno(stdout));
    _setmode(_fileno(stdout), _O_TEXT);
    _close(ends[1]);
  }
  OutputOnPipe(const OutputOnPipe&) = delete;
  OutputOnPipe& operator=(const OutputOnPipe&) = delete;
  ~OutputOnPipe() {
    std::fflush(stdout);
    std::clearerr(stdout);
    _dup2(former, _fileno(stdout));
    _close(former);
    if (reader >= 0) _close(reader);
  }
};

std::string written_line(bool prepared) {
  const OutputOnPipe output;
  if (prepared) prepare_standard_streams();
  _write(_fileno(stdout), "a\n", 2);
  std::array<char, 16> buffer{};
  const int count = _read(output.reader, buffer.data(), static_cast<unsigned>(buffer.size()));
  return std::string(buffer.data(), static_cast<std::size_t>(count < 0 ? 0 : count));
}

TEST_F(WindowsMachine, WritesLineFeedsAsTheyAreOnceTheStreamsArePrepared) {
  EXPECT_EQ(written_line(false), "a\r\n");
  EXPECT_EQ(written_line(true), "a\n");
}

TEST_F(WindowsMachine, TellsAClosedReaderByAFailedWrite) {
  int result = 0;
  {
    OutputOnPipe output;
    prepare_standard_streams();
    _close(output.reader);
    output.reader = -1;
    result = _write(_fileno(stdout), "x", 1);
  }
  EXPECT_EQ(result, -1);
}

TEST_F(WindowsMachine, TellsItsPathAsTheSystemDoes) {
  std::array<char, 1024> expected{};
  ASSERT_NE(GetModuleFileNameA(nullptr, expected.data(), static_cast<DWORD>(expected.size())), 0u);
  EXPECT_EQ(own_module_path(), expected.data());
}

TEST_F(WindowsMachine, TellsItsProcessNumber) { EXPECT_EQ(own_process_id(), GetCurrentProcessId()); }

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

}  // namespace
}  // namespace velmora
