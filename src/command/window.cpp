#include "command/window.h"

#include <string>

#include "base/ascii.h"
#include "platform/console_window.h"
#include "platform/machine.h"

namespace velmora {

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

void wait_for_enter() {
  write_standard_output("Press Enter to close this window. ");
  std::string line;
  static_cast<void>(read_standard_input_line(line));
}

}  // namespace velmora
