// Files by path. A path is UTF-8 text above this seam; on Windows it is widened here, elsewhere its bytes are
// taken as they stand. Errors are Win32 codes (winerror.h); 0 is success. On every system 2 is a missing
// file, 3 a path that leads through something missing or through a file (also the empty path), 5 a directory
// where a file is wanted. Nothing here throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/owner.h"

namespace velmora {

enum class FileKind { missing, regular, directory, other };

// What a path names, links followed. `missing` also where the path cannot be looked at.
[[nodiscard]] FileKind query_file_kind(std::string_view path);

// The size in bytes of the file that a path names, links followed. `out` is assigned on success alone.
[[nodiscard]] std::uint32_t query_file_size(std::string_view path, std::uint64_t& out);

// `directory` and `name` joined in the system's own way: its separator stands between them unless `directory`
// is empty or ends with one (or, on Windows, is a bare drive). Elsewhere than on Windows a path that begins
// with a drive (`C:\`) or a server (`\\server`) is joined as on Windows.
[[nodiscard]] std::string join_path(std::string_view directory, std::string_view name);

// `path` up to, not including, its last separator (the root keeps its own). Empty when there is none,
// but for the bare drive that a path begins with on Windows.
[[nodiscard]] std::string parent_path(std::string_view path);

struct InputFileKind {
  using Native = std::uintptr_t;
  static constexpr Native none = ~Native{0};
  static void release(Native native) noexcept;  // CloseHandle
};
// Owner of a file that is open for reading, with all sharing allowed, so that no other program is ever locked
// out.
using InputFile = Owner<InputFileKind>;

// Opens an existing file for reading from its first byte. A directory is 5. `out` is assigned on success
// alone.
[[nodiscard]] std::uint32_t open_for_reading(std::string_view path, InputFile& out);

struct FileRead {
  std::size_t count;  // bytes; 0 with error 0 is the end of the file
  std::uint32_t error;
};

// Reads up to `capacity` bytes from the file's present position.
[[nodiscard]] FileRead read_file_piece(const InputFile& file, char* buffer, std::size_t capacity);

// All bytes of an existing file. `bytes` is empty when there is an error, whether of the opening or of a
// read. Do not call it for a pipe or a device, which may have no end.
[[nodiscard]] std::uint32_t read_whole_file(std::string_view path, std::string& bytes);

// Makes the file, or empties it, and writes all bytes. On failure it may be left with fewer of them. What
// stands there and is no regular file gets no bytes (5), but the opening alone may be felt by a device or be
// held by it: a caller looks at the kind first.
[[nodiscard]] std::uint32_t write_whole_file(std::string_view path, std::string_view bytes);

// Removes a file or a link to one, and never a directory. 2 or 3: there is none.
[[nodiscard]] std::uint32_t remove_file(std::string_view path);

// The names in a directory, in the system's own order, without `.` and `..`, as UTF-8 (on Windows each
// unpaired surrogate as U+FFFD). Empty with an error: 3 where nothing is there, 267 where it is no directory.
[[nodiscard]] std::uint32_t list_directory(std::string_view path, std::vector<std::string>& names);

// Makes a directory with all that are missing above it. One that is there already is a success. 183: a
// file stands at the path or above it.
[[nodiscard]] std::uint32_t make_directories(std::string_view path);

}  // namespace velmora
