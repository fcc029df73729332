#include "platform/processes.h"

#include <array>

#include "platform/windows/handle.h"
#include "platform/windows/native.h"

#include <tlhelp32.h>

namespace velmora {
namespace {

static_assert(PROCESS_QUERY_LIMITED_INFORMATION == 0x1000);
static_assert(TOKEN_QUERY == 8 && TokenElevation == 20 && sizeof(TOKEN_ELEVATION) == 4);
static_assert(TH32CS_SNAPPROCESS == 2 && TH32CS_SNAPMODULE == 8);
static_assert(sizeof(PROCESSENTRY32W) == 568 && sizeof(MODULEENTRY32W) == 1080);

template <typename Kind>
std::uint32_t take_snapshot(DWORD what, std::uint32_t process_id, Owner<Kind>& out) {
  const HANDLE snapshot = CreateToolhelp32Snapshot(what, process_id);
  if (snapshot == INVALID_HANDLE_VALUE) return last_error();
  out = Owner<Kind>(native_of(snapshot));
  return 0;
}

bool read_process(BOOL(WINAPI* call)(HANDLE, PROCESSENTRY32W*), const ProcessSnapshot& snapshot,
                  ProcessEntry& out) {
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof entry;
  if (!call(handle_of(snapshot.native()), &entry)) return false;
  out = {entry.th32ProcessID, text_of(entry.szExeFile)};
  return true;
}

std::uint32_t read_module(BOOL(WINAPI* call)(HANDLE, MODULEENTRY32W*), const ModuleSnapshot& snapshot,
                          ModuleEntry& out) {
  MODULEENTRY32W entry{};
  entry.dwSize = sizeof entry;
  if (!call(handle_of(snapshot.native()), &entry)) return last_error();
  out = {text_of(entry.szModule), text_of(entry.szExePath)};
  return 0;
}

}  // namespace

void ProcessSnapshotKind::release(Native native) noexcept { CloseHandle(handle_of(native)); }
void ModuleSnapshotKind::release(Native native) noexcept { CloseHandle(handle_of(native)); }

std::u16string process_image_path(std::uint32_t process_id) {
  const Handle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process_id));
  if (!process.is_open()) return {};
  std::array<wchar_t, 260> path{};
  auto length = static_cast<DWORD>(path.size());
  if (!QueryFullProcessImageNameW(process.native(), 0, path.data(), &length)) return {};
  return {path.begin(), path.begin() + length};
}

bool own_process_is_elevated() {
  HANDLE opened = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) return false;
  const Handle token(opened);
  TOKEN_ELEVATION elevation{};
  DWORD size = 0;
  return GetTokenInformation(opened, TokenElevation, &elevation, sizeof elevation, &size) &&
         elevation.TokenIsElevated != 0;
}

std::uint32_t snapshot_processes(ProcessSnapshot& out) { return take_snapshot(TH32CS_SNAPPROCESS, 0, out); }

bool first_process(const ProcessSnapshot& snapshot, ProcessEntry& out) {
  return read_process(Process32FirstW, snapshot, out);
}

bool next_process(const ProcessSnapshot& snapshot, ProcessEntry& out) {
  return read_process(Process32NextW, snapshot, out);
}

std::uint32_t snapshot_modules(std::uint32_t process_id, ModuleSnapshot& out) {
  return take_snapshot(TH32CS_SNAPMODULE, process_id, out);
}

std::uint32_t first_module(const ModuleSnapshot& snapshot, ModuleEntry& out) {
  return read_module(Module32FirstW, snapshot, out);
}

bool next_module(const ModuleSnapshot& snapshot, ModuleEntry& out) {
  return read_module(Module32NextW, snapshot, out) == 0;
}

}  // namespace velmora
