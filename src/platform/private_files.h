// Files that only this user may read, and that show whether the program that made them still runs. Paths are
// UTF-8. Errors are Win32 codes (winerror.h); 0 is success. On every system, 2 and 3 mean that the file or
// its folder does not exist, 5 that access is denied, 19 a file system for reading only, 112 a full disk.
//
// On Windows a file has this user as its owner and a protected access list with this user as its only entry.
// Elsewhere its mode is 0600, and that of a folder 0700. A link at the end of a path is never followed;
// reading one gives 1921 (ERROR_CANT_RESOLVE_FILENAME).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/owner.h"

namespace velmora {

// Returns the folder for files of this user that only one machine needs: `Velmora\Control` below the
// environment variable LOCALAPPDATA; elsewhere `velmora/control` below XDG_STATE_HOME, or below
// `.local/state` of HOME. Empty if no variable holds an absolute path.
[[nodiscard]] std::string private_directory();

// Creates the folder and its missing parents; only the last one is made private. Success if it exists and
// belongs to this user: then it becomes private. 183: a file is at the path or above it. 1307
// (ERROR_INVALID_OWNER): it belongs to somebody else. On Windows the group of administrators may own it too.
[[nodiscard]] std::uint32_t make_private_directory(std::string_view path);

struct HeldFileKind {
  using Native = std::uintptr_t;
  static constexpr Native none = ~Native{0};
  static void release(Native native) noexcept;
};
// Owner of a private file that this process made and holds. Others may read it, but not write, delete or
// replace it as long as it is held; elsewhere than on Windows this binds only users of these functions.
// Releasing it removes the file. On Windows the system removes it too when this process is killed; elsewhere
// it stays then, and is no longer held.
using HeldFile = Owner<HeldFileKind>;

// Makes a private file and holds it. A file that nobody holds is replaced, whoever made it. 32
// (ERROR_SHARING_VIOLATION): another process holds it. 1307: it belongs to somebody else and cannot be
// examined. `out` is assigned only on success.
[[nodiscard]] std::uint32_t hold_private_file(std::string_view path, HeldFile& out);

// Replaces the contents. After a failure the file is empty, or unchanged. A reader at the same moment may see
// no bytes or only the first ones.
[[nodiscard]] std::uint32_t write_held_file(const HeldFile& file, std::string_view bytes);

struct PrivateFileRead {
  std::uint32_t error = 0;  // 1307: it belongs to somebody else, or others may read it
  bool is_held = false;     // by a process that runs; false unless `error` is 0
  std::string bytes;        // the first 64 KiB; empty unless `error` is 0
};

// Reads a private file that this user made. Never waits for a writer.
[[nodiscard]] PrivateFileRead read_private_file(std::string_view path);

// Makes a private file that nobody holds, with these contents, or replaces one of this user. Readers see none
// or all of them. 32: another process holds the file. 1307: it belongs to somebody else. After these two it
// is unchanged; after any other failure there is no such file.
[[nodiscard]] std::uint32_t write_private_file(std::string_view path, std::string_view bytes);

}  // namespace velmora
