#include "platform/contract_child.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>

#include "base/text.h"
#include "platform/child_process.h"
#include "platform/clock.h"
#include "platform/console_window.h"
#include "platform/machine.h"
#include "platform/private_files.h"

namespace velmora::contract_child {
namespace {

constexpr std::uint32_t longest_life_ms = 60'000;
std::atomic<bool> interrupted{false};

// Nobody needs it for longer, even if whoever started it has been killed.
int stay() {
  write_standard_output("ready\n");
  sleep_ms(longest_life_ms);
  return 9;
}

int wait_for_interrupt() {
  install_console_handler([](std::uint32_t event) {
    interrupted = event == 0;
    return true;
  });
  write_standard_output("ready\n");
  for (std::uint32_t waited_ms = 0; waited_ms < longest_life_ms && !interrupted; waited_ms += 5) sleep_ms(5);
  write_standard_output(interrupted ? "interrupted\n" : "missed\n");
  return interrupted ? 7 : 8;
}

// Writes to both streams by turns.
int flood(std::size_t bytes) {
  constexpr std::size_t piece = 4096;
  for (std::size_t sent = 0; sent < bytes; sent += piece) {
    write_standard_output(std::string(piece, 'o'));
    write_standard_error(std::string(piece, 'e'));
  }
  return 0;
}

int keep_child() {
  ChildProcess child;
  if (start_child(own_module_path(), {"stay"}, child) != 0) return 1;
  if (wait_for_child(child, longest_life_ms).bytes != "ready\n") return 1;
  write_standard_output(std::to_string(child_process_id(child)) + '\n');
  sleep_ms(longest_life_ms);
  return 9;
}

int hold(const std::string& path, const std::string& bytes) {
  HeldFile file;
  if (hold_private_file(path, file) != 0 || write_held_file(file, bytes) != 0) return 1;
  return stay();
}

std::string directory() {
  const std::u8string path = std::filesystem::current_path().u8string();
  return {path.begin(), path.end()};
}

}  // namespace

int run(const std::vector<std::string>& arguments) {
  const auto at = [&](std::size_t index) {
    return index < arguments.size() ? arguments[index] : std::string();
  };
  const auto number_at = [&](std::size_t index) { return std::strtoul(at(index).c_str(), nullptr, 10); };
  const std::string& what = at(0);
  if (what == "arguments") {
    for (std::size_t index = 1; index < arguments.size(); ++index)
      write_standard_output('[' + at(index) + ']');
    return 0;
  }
  if (what == "print") {
    write_standard_output(at(1));
    write_standard_error(at(2));
    return static_cast<int>(number_at(3));
  }
  if (what == "input") {
    std::string line;
    write_standard_output(read_standard_input_line(line) ? "line" : "end");
    return 0;
  }
  if (what == "environment") {
    write_standard_output(utf8_from_wide_replacing(environment_variable(wide_from_utf8(at(1)))));
    return 0;
  }
  if (what == "directory") {
    write_standard_output(directory());
    return 0;
  }
  if (what == "leave") {
    write_standard_output(std::to_string(start_heir()) + '\n');
    return 5;
  }
  if (what == "interrupt")
    return static_cast<int>(interrupt_process(static_cast<std::uint32_t>(number_at(1))));
  if (what == "wait") return wait_for_interrupt();
  if (what == "stay") return stay();
  if (what == "flood") return flood(number_at(1));
  if (what == "keep") return keep_child();
  if (what == "hold") return hold(at(1), at(2));
  return 2;
}

}  // namespace velmora::contract_child
