#include "command/command.h"

#include <string>
#include <string_view>

#include "base/version.h"
#include "command/arguments.h"
#include "command/exit_codes.h"
#include "command/help.h"
#include "command/open_page.h"
#include "command/start.h"
#include "command/status.h"
#include "command/stop.h"
#include "platform/child_process.h"
#include "platform/errors.h"
#include "platform/machine.h"
#include "platform/sockets.h"

namespace velmora {
namespace {

int finish(const Outcome& outcome) {
  if (!outcome.sentence.empty()) write_standard_error(outcome.sentence + '\n');
  return static_cast<int>(outcome.code);
}

Outcome show(std::string_view text) {
  if (write_standard_output(text)) return {};
  return {
      CommandCode::output_not_written,
      "Not everything could be written to standard output: make room on the disk, or keep the program that "
      "reads it open."};
}

Outcome show_status(const CommandArguments& arguments) {
  std::string report;
  Outcome outcome = report_status(arguments.json, report);
  return outcome.failed() ? outcome : show(report);
}

Outcome interrupt(std::uint32_t process_id) {
  const std::uint32_t error = interrupt_process(process_id);
  if (error == 0) return {};
  const std::string id = std::to_string(process_id);
  if (error == error_invalid_parameter) {
    return {CommandCode::not_running, "There is no process " + id + ": to end Velmora, run velmora stop."};
  }
  const std::string why = error == error_access_denied
                              ? " belongs to another user or has more rights"
                              : " cannot be interrupted (error " + std::to_string(error) + ")";
  return {CommandCode::bad_command_line, "The process " + id + why + ": end it in its own window."};
}

// The commands that talk to a service.
int run_with_sockets(const CommandArguments& arguments) {
  if (start_sockets()) {
    return finish({CommandCode::service_lost, "The network of this computer cannot be used: restart it."});
  }
  int code = 0;
  switch (arguments.command) {
    case CommandName::start: code = start_command(arguments); break;
    case CommandName::status: code = finish(show_status(arguments)); break;
    default: code = finish(open_running_page());
  }
  stop_sockets();
  return code;
}

}  // namespace

int run_command(const std::vector<std::string_view>& arguments) {
  const CommandArguments parsed = parse_command_arguments(arguments);
  if (!parsed.refusal.empty()) return finish({CommandCode::bad_command_line, parsed.refusal});
  switch (parsed.command) {
    case CommandName::none:
      write_standard_error(help_text(CommandName::none));
      return static_cast<int>(CommandCode::bad_command_line);
    case CommandName::help: return finish(show(help_text(parsed.help_for)));
    case CommandName::version: return finish(show("velmora " + std::string(application_version) + '\n'));
    case CommandName::stop: return stop_command(parsed);
    case CommandName::interrupt: return finish(interrupt(parsed.process_id));
    default: return run_with_sockets(parsed);
  }
}

}  // namespace velmora
