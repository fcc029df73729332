// Files by path. A path is UTF-8 text above this seam; on Windows it is widened here, elsewhere its bytes are
// taken as they stand. Errors are Win32 codes (winerror.h); 0 is success. Nothing here throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/owner.h"

namespace velmora {

enum class FileKind { missing, regular, directory, other };

// What a path names, links followed. `missing` also where the path cannot be looked at.
[[nodiscard]] FileKind query_file_kind(std::string_view path);

// `directory` and `name` joined in the system's own way: its separator stands between them unless `directory`
// is empty or ends with one (or, on Windows, is a bare drive).
[[nodiscard]] std::string join_path(std::string_view directory, std::string_view name);

// `path` up to, not including, its last separator (the root keeps its own). Empty when there is none.
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

}  // namespace velmora
