#include "command/window.h"

#include <array>
#include <cstddef>
#include <utility>

#include "base/ascii.h"
#include "platform/console_window.h"
#include "platform/machine.h"

namespace velmora {
namespace {

// The first that matches at a place counts. start.cmd opens the page of a service that runs.
constexpr std::array<std::pair<std::string_view, std::string_view>, 7> scripts = {
    {{"run velmora start", "double-click start.cmd"},
     {"run velmora stop --force", "double-click stop.cmd"},
     {"run velmora stop", "double-click stop.cmd"},
     {"velmora start", "start.cmd"},
     {"velmora open", "start.cmd"},
     {"velmora stop --force", "stop.cmd"},
     {"velmora stop", "stop.cmd"}}};

void replace_all(std::string& text, std::size_t from, std::string_view old, std::string_view now) {
  for (std::size_t at = text.find(old, from); at != std::string::npos; at = text.find(old, at + now.size())) {
    text.replace(at, old.size(), now);
  }
}

}  // namespace

void explain_start_window() {
  set_console_title("Velmora");
  write_standard_output(
      "This window runs Velmora. Leave it open while you use Velmora.\n"
      "To end Velmora, double-click stop.cmd, press Ctrl+C here, or close this window.\n\n");
}

void explain_stop_window() {
  set_console_title("End Velmora");
  write_standard_output("Ending Velmora ...\n");
}

bool ask(std::string_view question) {
  write_standard_output(std::string(question) + " (y/n) ");
  std::string line;
  const bool is_read = read_standard_input_line(line);
  if (!is_read) write_standard_output("\n");
  const std::string answer = to_lower_copy(trim(line));
  return answer == "y" || answer == "yes";
}

std::string name_scripts(std::string_view sentence) {
  std::string text(sentence);
  // What comes before the remedy may hold a path, which stays as it is.
  const std::size_t remedy = text.rfind(": ");
  if (remedy == std::string::npos) return text;
  for (const auto& [command, script] : scripts) replace_all(text, remedy, command, script);
  return text;
}

void wait_for_enter() {
  write_standard_output("Press Enter to close this window. ");
  std::string line;
  static_cast<void>(read_standard_input_line(line));
}

}  // namespace velmora
