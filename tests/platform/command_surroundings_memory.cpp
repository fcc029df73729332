#include "platform/command_surroundings.h"

#include "base/text.h"
#include "memory/system.h"
#include "platform/files.h"

namespace velmora::surroundings {
namespace {

constexpr const char* program = "/opt/velmora/child";

std::string argument(const memory::Child& child, std::size_t index) {
  return index < child.arguments.size() ? child.arguments[index] : std::string();
}

// Does what the real program does.
std::uint32_t script(memory::Child& child) {
  const std::string what = argument(child, 0);
  if (what == "arguments") {
    for (std::size_t index = 1; index < child.arguments.size(); ++index) {
      memory::print(child, '[' + child.arguments[index] + ']');
    }
    memory::end(child, 0);
  } else if (what == "print") {
    if (!argument(child, 1).empty()) memory::print(child, argument(child, 1));
    if (!argument(child, 2).empty()) memory::print(child, argument(child, 2), ChildEvent::Kind::error_output);
    memory::end(child, static_cast<std::uint32_t>(std::stoul(argument(child, 3))));
  } else if (what == "input") {
    memory::print(child, "end");
    memory::end(child, 0);
  } else if (what == "environment") {
    memory::print(child, utf8_from_wide(environment_variable(wide_from_utf8(argument(child, 1)))));
    memory::end(child, 0);
  } else if (what == "directory") {
    memory::print(child, current_directory());
    memory::end(child, 0);
  } else if (what == "interrupt") {
    const bool done = memory::interrupt_child(static_cast<std::uint32_t>(std::stoul(argument(child, 1))));
    memory::end(child, done ? 0 : 87);
  } else if (what == "wait") {
    memory::print(child, "ready\n");
    child.on_interrupt = [](memory::Child& interrupted) {
      memory::print(interrupted, "interrupted\n");
      memory::end(interrupted, 7);
    };
  } else if (what == "stay") {
    memory::print(child, "ready\n");
  }
  return 0;
}

}  // namespace

std::string set_up_children() {
  memory::system().files[program].bytes = "program";
  memory::system().on_start_child = script;
  return program;
}

std::uint32_t exit_code_of_ended() { return 1; }

std::string current_directory() { return "/here"; }

bool is_running(std::uint32_t process_id) {
  for (const auto& child : memory::system().children) {
    if (child->id == process_id) return !child->exit_code;
  }
  return false;
}

void HolderKind::release(Native) noexcept {
  std::erase_if(memory::system().files, [](const auto& file) { return file.second.is_held; });
}

Holder hold_elsewhere_file(const std::string& path, const std::string& bytes) {
  memory::File& file = memory::system().files[path];
  file = {};
  file.bytes = bytes;
  file.is_private = true;
  file.is_held = true;
  return Holder(1);
}

bool removes_files_of_killed() { return true; }

bool is_private(const std::string& path) { return memory::system().files.at(path).is_private; }

void open_to_others(const std::string& path) { memory::system().files.at(path).is_private = false; }

PrivatePlace private_place() { return {u"XDG_STATE_HOME", u"/state", "/state/velmora/control"}; }

void NoPlaceKind::release(Native) noexcept {}
NoPlace remove_private_places() {
  memory::system().environment.clear();
  return NoPlace(1);
}

void StandardInputKind::release(Native) noexcept { memory::system().standard_input.clear(); }
StandardInput put_standard_input(std::string_view bytes) {
  memory::system().standard_input = bytes;
  return StandardInput(1);
}

}  // namespace velmora::surroundings
