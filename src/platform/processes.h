// The processes of this machine and what they have loaded. Errors are Win32 codes (winerror.h); 0 is success,
// and a call that fails without saying why is 31 (ERROR_GEN_FAILURE).
#pragma once

#include <cstdint>
#include <string>

#include "platform/owner.h"

namespace velmora {

// The path of a process's program: OpenProcess with PROCESS_QUERY_LIMITED_INFORMATION (0x1000), then
// QueryFullProcessImageNameW with a buffer of 260 characters. Empty when the process cannot be opened or
// asked. Elsewhere than on Windows it is the system's own path, without backslashes.
[[nodiscard]] std::u16string process_image_path(std::uint32_t process_id);

// Whether the token of this process is elevated (OpenProcessToken, GetTokenInformation with TokenElevation);
// false when it cannot be asked. Elsewhere than on Windows: whether it runs as root.
[[nodiscard]] bool own_process_is_elevated();

struct ProcessSnapshotKind {
  using Native = std::uintptr_t;
  static constexpr Native none = ~Native{0};
  static void release(Native native) noexcept;  // CloseHandle
};
// Owner of a list of processes as they were when it was made, with the place of the next one.
using ProcessSnapshot = Owner<ProcessSnapshotKind>;

struct ModuleSnapshotKind {
  using Native = std::uintptr_t;
  static constexpr Native none = ~Native{0};
  static void release(Native native) noexcept;  // CloseHandle
};
// The same of the modules of one process.
using ModuleSnapshot = Owner<ModuleSnapshotKind>;

struct ProcessEntry {
  std::uint32_t process_id = 0;
  std::u16string file_name;  // of its program, without directory
};

struct ModuleEntry {
  std::u16string name;  // without directory
  std::u16string path;
};

// CreateToolhelp32Snapshot with TH32CS_SNAPPROCESS. `out` is assigned on success alone.
[[nodiscard]] std::uint32_t snapshot_processes(ProcessSnapshot& out);

// Process32FirstW and Process32NextW. False, with `out` untouched, behind the last process.
[[nodiscard]] bool first_process(const ProcessSnapshot& snapshot, ProcessEntry& out);
[[nodiscard]] bool next_process(const ProcessSnapshot& snapshot, ProcessEntry& out);

// CreateToolhelp32Snapshot with TH32CS_SNAPMODULE. 5: the process may not be looked into; 87: there is none
// of this id. `out` is assigned on success alone.
[[nodiscard]] std::uint32_t snapshot_modules(std::uint32_t process_id, ModuleSnapshot& out);

// Module32FirstW. 18 (ERROR_NO_MORE_FILES): there is none. `out` is assigned on success alone.
[[nodiscard]] std::uint32_t first_module(const ModuleSnapshot& snapshot, ModuleEntry& out);
// Module32NextW. False, with `out` untouched, behind the last module.
[[nodiscard]] bool next_module(const ModuleSnapshot& snapshot, ModuleEntry& out);

}  // namespace velmora
