#include "platform/child_process.h"

#include "memory/system.h"
#include "platform/errors.h"
#include "platform/files.h"

namespace velmora {
namespace {

std::string entry_of(std::string_view operation, std::string_view program,
                     const std::vector<std::string>& arguments) {
  std::string entry(operation);
  entry.append(" ").append(program);
  for (const std::string& argument : arguments) entry.append(" ").append(argument);
  return entry;
}

// Logs a call with what it is about.
std::int64_t enter_about(std::string_view operation, const std::string& entry) {
  const std::int64_t fault = memory::enter(operation);
  memory::system().log.back() = entry;
  return fault;
}

memory::Child& child_of(ChildProcessKind::Native native) {
  return *memory::system().handles.at(reinterpret_cast<std::uintptr_t>(native)).child;
}

std::uint32_t error_of_no_program(std::string_view path) {
  switch (query_file_kind(path)) {
    case FileKind::regular: return 0;
    case FileKind::missing: break;
    default: return error_access_denied;
  }
  return query_file_kind(parent_path(path)) == FileKind::directory ? error_file_not_found
                                                                   : error_path_not_found;
}

}  // namespace

void ChildProcessKind::release(Native native) noexcept {
  static_cast<void>(memory::enter("CloseHandle"));
  memory::Child& child = child_of(native);
  child.released = true;
  memory::end(child, 1);
  memory::system().handles.erase(reinterpret_cast<std::uintptr_t>(native));
}

std::uint32_t start_child(std::string_view program, const std::vector<std::string>& arguments,
                          ChildProcess& out) {
  if (const auto fault = enter_about("CreateProcessW", entry_of("CreateProcessW", program, arguments))) {
    return static_cast<std::uint32_t>(fault);
  }
  for (const std::string& argument : arguments) {
    if (argument.find('\0') != std::string::npos) return error_invalid_parameter;
  }
  if (const std::uint32_t error = error_of_no_program(program); error != 0) return error;
  memory::System& machine = memory::system();
  const auto child = std::make_shared<memory::Child>();
  child->id = machine.next_child_id++;
  child->program = program;
  child->arguments = arguments;
  if (machine.on_start_child) {
    if (const std::uint32_t error = machine.on_start_child(*child); error != 0) return error;
  }
  machine.children.push_back(child);
  memory::Handle handle;
  handle.what = "child";
  handle.child = child;
  out = ChildProcess(reinterpret_cast<void*>(memory::add_handle(std::move(handle))));
  return 0;
}

std::uint32_t child_process_id(const ChildProcess& child) { return child_of(child.native()).id; }

ChildEvent wait_for_child(const ChildProcess& child, std::uint32_t timeout_ms) {
  memory::Child& scripted = child_of(child.native());
  if (scripted.events.empty() && !scripted.exit_code && scripted.on_wait) scripted.on_wait(scripted);
  ChildEvent event;
  if (!scripted.events.empty()) {
    event = scripted.events.front();
    scripted.events.pop_front();
    if (event.kind == ChildEvent::Kind::ended) {
      memory::end(scripted, event.exit_code);
    } else if (event.kind != ChildEvent::Kind::nothing) {
      return event;
    }
  }
  if (event.kind != ChildEvent::Kind::nothing || (scripted.events.empty() && scripted.exit_code)) {
    scripted.end_reported = true;
    return {ChildEvent::Kind::ended, {}, *scripted.exit_code};
  }
  memory::system().now_ns += std::int64_t{timeout_ms} * 1'000'000;
  memory::pass_idle_time();
  return {};
}

bool end_child(const ChildProcess& child) {
  memory::Child& scripted = child_of(child.native());
  if (enter_about("TerminateProcess", "TerminateProcess " + std::to_string(scripted.id)) != 0) return false;
  scripted.killed = true;
  std::erase_if(scripted.events, [](const ChildEvent& event) {
    return event.kind == ChildEvent::Kind::nothing || event.kind == ChildEvent::Kind::ended;
  });
  memory::end(scripted, 1);
  return true;
}

std::uint32_t interrupt_process(std::uint32_t process_id) {
  const std::string entry = "GenerateConsoleCtrlEvent " + std::to_string(process_id);
  if (const auto fault = enter_about("GenerateConsoleCtrlEvent", entry)) {
    return static_cast<std::uint32_t>(fault);
  }
  return memory::interrupt_child(process_id) ? 0 : error_invalid_parameter;
}

std::uint32_t start_as_administrator(std::string_view program, const std::vector<std::string>& arguments) {
  const std::string entry = entry_of("ShellExecuteExW runas", program, arguments);
  if (const auto fault = enter_about("ShellExecuteExW", entry)) return static_cast<std::uint32_t>(fault);
  memory::system().elevated_starts.push_back({std::string(program), arguments});
  return 0;
}

}  // namespace velmora
