#include "platform/processes.h"

#include "memory/system.h"
#include "platform/errors.h"

namespace velmora {
namespace {

memory::Handle& handle_of(std::uintptr_t native) { return memory::system().handles.at(native); }

void release_handle(std::uintptr_t native) {
  static_cast<void>(memory::enter("CloseHandle"));
  memory::system().handles.erase(native);
}

template <typename Kind>
void hold(const char* what, std::uint32_t process_id, Owner<Kind>& out) {
  memory::Handle handle;
  handle.what = what;
  handle.process_id = process_id;
  out = Owner<Kind>(memory::add_handle(std::move(handle)));
}

const memory::Process* find_process(std::uint32_t process_id) {
  for (const memory::Process& process : memory::system().processes) {
    if (process.id == process_id) return &process;
  }
  return nullptr;
}

}  // namespace

void ProcessSnapshotKind::release(Native native) noexcept { release_handle(native); }
void ModuleSnapshotKind::release(Native native) noexcept { release_handle(native); }

std::u16string process_image_path(std::uint32_t process_id) {
  if (memory::enter("QueryFullProcessImageNameW") != 0) return {};
  const auto& paths = memory::system().process_paths;
  const auto path = paths.find(process_id);
  return path == paths.end() ? std::u16string() : path->second;
}

bool own_process_is_elevated() {
  return memory::enter("GetTokenInformation") == 0 && memory::system().elevated;
}

std::uint32_t snapshot_processes(ProcessSnapshot& out) {
  if (const auto fault = hosted::enter("CreateToolhelp32Snapshot processes", u"")) {
    return static_cast<std::uint32_t>(fault);
  }
  hold("processes", 0, out);
  return 0;
}

bool first_process(const ProcessSnapshot& snapshot, ProcessEntry& out) {
  if (hosted::enter("Process32FirstW", u"") != 0) return false;
  memory::Handle& handle = handle_of(snapshot.native());
  handle.position = 0;
  const auto& processes = memory::system().processes;
  if (processes.empty()) return false;
  out = {processes.front().id, processes.front().file_name};
  return true;
}

bool next_process(const ProcessSnapshot& snapshot, ProcessEntry& out) {
  if (hosted::enter("Process32NextW", u"") != 0) return false;
  memory::Handle& handle = handle_of(snapshot.native());
  const auto& processes = memory::system().processes;
  if (handle.position + 1 >= processes.size()) return false;
  const memory::Process& process = processes[++handle.position];
  out = {process.id, process.file_name};
  return true;
}

std::uint32_t snapshot_modules(std::uint32_t process_id, ModuleSnapshot& out) {
  if (const auto fault = hosted::enter("CreateToolhelp32Snapshot modules", u"")) {
    return static_cast<std::uint32_t>(fault);
  }
  if (find_process(process_id) == nullptr) return error_invalid_parameter;
  hold("modules", process_id, out);
  return 0;
}

std::uint32_t first_module(const ModuleSnapshot& snapshot, ModuleEntry& out) {
  if (const auto fault = hosted::enter("Module32FirstW", u"")) return static_cast<std::uint32_t>(fault);
  memory::Handle& handle = handle_of(snapshot.native());
  handle.position = 0;
  const memory::Process* process = find_process(handle.process_id);
  if (process == nullptr || process->modules.empty()) return error_no_more_files;
  out = process->modules.front();
  return 0;
}

bool next_module(const ModuleSnapshot& snapshot, ModuleEntry& out) {
  if (hosted::enter("Module32NextW", u"") != 0) return false;
  memory::Handle& handle = handle_of(snapshot.native());
  const memory::Process* process = find_process(handle.process_id);
  if (process == nullptr || handle.position + 1 >= process->modules.size()) return false;
  out = process->modules[++handle.position];
  return true;
}

}  // namespace velmora
