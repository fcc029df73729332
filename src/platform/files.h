// Files by path. Paths are UTF-8 above the platform seam. On Windows they are widened here; elsewhere their
// bytes are used unchanged.
//
// Errors are Win32 codes (winerror.h); 0 is success. On every system, 2 is a missing file and 3 a path
// through a missing directory or through a file (also the empty path). 5 is a directory where a file is
// expected. Nothing here throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/owner.h"

namespace velmora {

enum class FileKind { missing, regular, directory, other };

// Returns the kind of the file, following links. `missing` also if it cannot be examined.
[[nodiscard]] FileKind query_file_kind(std::string_view path);

// Returns the file size in bytes, following links. `out` is assigned only on success.
[[nodiscard]] std::uint32_t query_file_size(std::string_view path, std::uint64_t& out);

// Joins `directory` and `name` with the system's separator. No separator is added if `directory` is empty or
// ends with one, or is a bare drive on Windows. On other systems a path that starts with a drive (`C:\`) or a
// server (`\\server`) is joined as on Windows.
[[nodiscard]] std::string join_path(std::string_view directory, std::string_view name);

// Returns `path` up to its last separator, without it (a root keeps it). Without a separator the result is
// empty, or on Windows the bare drive that `path` starts with.
[[nodiscard]] std::string parent_path(std::string_view path);

struct InputFileKind {
  using Native = std::uintptr_t;
  static constexpr Native none = ~Native{0};
  static void release(Native native) noexcept;  // CloseHandle
};
// Owner of a file open for reading. All sharing is allowed, so other programs are never locked out.
using InputFile = Owner<InputFileKind>;

// Opens an existing file for reading. A directory gives 5. `out` is assigned only on success.
[[nodiscard]] std::uint32_t open_for_reading(std::string_view path, InputFile& out);

struct FileRead {
  std::size_t count;  // bytes; 0 with error 0: end of file
  std::uint32_t error;
};

// Reads up to `capacity` bytes at the current position.
[[nodiscard]] FileRead read_file_piece(const InputFile& file, char* buffer, std::size_t capacity);

// Reads a whole existing file. `bytes` is empty if opening or any read fails. Do not use it for pipes or
// devices, which may have no end.
[[nodiscard]] std::uint32_t read_whole_file(std::string_view path, std::string& bytes);

// Creates or truncates the file and writes all bytes. On failure the file may be incomplete. Anything but a
// regular file gives 5 and receives no bytes. Opening a device may still affect it or block, so callers
// check the kind first.
[[nodiscard]] std::uint32_t write_whole_file(std::string_view path, std::string_view bytes);

// Removes a file or a link to one, but never a directory. 2 or 3: it does not exist.
[[nodiscard]] std::uint32_t remove_file(std::string_view path);

// Lists a directory in the system's order, without `.` and `..`. Names are UTF-8; on Windows each unpaired
// surrogate becomes U+FFFD. On failure `names` is empty. 3: nothing exists at the path; 267: not a directory.
[[nodiscard]] std::uint32_t list_directory(std::string_view path, std::vector<std::string>& names);

// Creates a directory and its missing parents. Success if it exists. 183: a file is at the path or above it.
[[nodiscard]] std::uint32_t make_directories(std::string_view path);

}  // namespace velmora
