// Processes of this machine and their modules. Errors are Win32 codes (winerror.h); 0 is success. A call that
// fails without an error code gives 31 (ERROR_GEN_FAILURE).
#pragma once

#include <cstdint>
#include <string>

#include "platform/owner.h"

namespace velmora {

// Returns the path of a process's program: OpenProcess with PROCESS_QUERY_LIMITED_INFORMATION (0x1000), then
// QueryFullProcessImageNameW with a buffer of 260 characters. Empty if either fails. On other systems it is a
// native path, without backslashes.
[[nodiscard]] std::u16string process_image_path(std::uint32_t process_id);

// Whether the token of this process is elevated (OpenProcessToken, GetTokenInformation with TokenElevation).
// False if that fails. On other systems: whether it runs as root.
[[nodiscard]] bool own_process_is_elevated();

struct ProcessSnapshotKind {
  using Native = std::uintptr_t;
  static constexpr Native none = ~Native{0};
  static void release(Native native) noexcept;  // CloseHandle
};
// Owner of a snapshot of the processes, with an iteration position.
using ProcessSnapshot = Owner<ProcessSnapshotKind>;

struct ModuleSnapshotKind {
  using Native = std::uintptr_t;
  static constexpr Native none = ~Native{0};
  static void release(Native native) noexcept;  // CloseHandle
};
// Owner of a snapshot of the modules of one process, with an iteration position.
using ModuleSnapshot = Owner<ModuleSnapshotKind>;

struct ProcessEntry {
  std::uint32_t process_id = 0;
  std::u16string file_name;  // of the program, without directory
};

struct ModuleEntry {
  std::u16string name;  // without directory
  std::u16string path;
};

// CreateToolhelp32Snapshot with TH32CS_SNAPPROCESS. `out` is assigned only on success.
[[nodiscard]] std::uint32_t snapshot_processes(ProcessSnapshot& out);

// Process32FirstW and Process32NextW. False, leaving `out` unchanged, after the last process.
[[nodiscard]] bool first_process(const ProcessSnapshot& snapshot, ProcessEntry& out);
[[nodiscard]] bool next_process(const ProcessSnapshot& snapshot, ProcessEntry& out);

// CreateToolhelp32Snapshot with TH32CS_SNAPMODULE. 5: access to the process is denied; 87: no such process.
// `out` is assigned only on success.
[[nodiscard]] std::uint32_t snapshot_modules(std::uint32_t process_id, ModuleSnapshot& out);

// Module32FirstW. 18 (ERROR_NO_MORE_FILES): no modules. `out` is assigned only on success.
[[nodiscard]] std::uint32_t first_module(const ModuleSnapshot& snapshot, ModuleEntry& out);
// Module32NextW. False, leaving `out` unchanged, after the last module.
[[nodiscard]] bool next_module(const ModuleSnapshot& snapshot, ModuleEntry& out);

}  // namespace velmora
