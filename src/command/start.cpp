#include "command/start.h"

#include <array>
#include <cstdint>
#include <utility>

#include "base/hex.h"
#include "command/console_events.h"
#include "command/open_page.h"
#include "command/port_choice.h"
#include "command/run_folder.h"
#include "command/service_watch.h"
#include "command/window.h"
#include "platform/child_process.h"
#include "platform/clock.h"
#include "platform/console_window.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "platform/processes.h"

namespace velmora {
namespace {

// Windows ends a closed window's programs after some 5 s.
constexpr std::uint32_t close_wait_ms = 4500;

WatchedEnd end_of(Outcome outcome) { return {static_cast<int>(outcome.code), std::move(outcome.sentence)}; }

std::string own_folder() { return parent_path(own_module_path()); }

// The service's program has the extension of our own.
std::string service_path() {
  const bool is_windows = own_module_path().ends_with(".exe");
  return join_path(own_folder(), is_windows ? "velmora_control_demo.exe" : "velmora_control_demo");
}

// 16 lower-case hexadecimal digits. Empty if the system provides no random bytes.
std::string new_run_id() {
  std::array<unsigned char, 8> bytes;
  if (!fill_random(bytes.data(), bytes.size())) return {};
  std::string id;
  for (const unsigned char byte : bytes) append_hex(id, byte);
  return id;
}

// What the service gets: its own options, behind those that are left to us.
std::vector<std::string> service_arguments(const std::vector<std::string>& options, std::uint16_t port) {
  std::vector<std::string> all;
  if (!service_option(options, "--port")) all = {"--port", std::to_string(port)};
  if (!service_option(options, "--web-root")) {
    all.emplace_back("--web-root");
    all.push_back(join_path(own_folder(), "web"));
  }
  all.insert(all.end(), options.begin(), options.end());
  return all;
}

Outcome not_started(std::uint32_t error) {
  const std::string program = service_path();
  if (error == error_file_not_found || error == error_path_not_found) {
    return {CommandCode::not_started, program + " is missing: unpack the whole archive again."};
  }
  return {CommandCode::not_started, program + " cannot be started (error " + std::to_string(error) +
                                        "): unpack the whole archive again."};
}

WatchedEnd run_service_child(const CommandArguments& arguments, bool opens_page) {
  HeldFile run_file;
  Outcome outcome = hold_run_file(run_file);
  if (outcome.failed()) return end_of(std::move(outcome));
  const std::string run_id = new_run_id();
  if (run_id.empty()) {
    return end_of({CommandCode::not_started, "The system gives no random numbers: restart the computer."});
  }
  PortChoice choice = choose_port(service_option(arguments.service_options, "--port"));
  if (choice.outcome.failed()) return end_of(std::move(choice.outcome));
  // From here on, Ctrl+C in our window reaches us only.
  install_console_handler(count_console_event);
  delay_end_after_close(close_wait_ms);
  ChildProcess service;
  const std::vector<std::string> options = service_arguments(arguments.service_options, choice.port);
  if (const std::uint32_t error = start_child(service_path(), options, service)) {
    return end_of(not_started(error));
  }
  return watch_service(service, run_file, run_id, opens_page);
}

// Waits for the run of the program that was started as administrator, and opens its page with our own rights.
Outcome open_page_of_elevated() {
  constexpr std::int64_t limit_ns = 60'000'000'000;
  constexpr std::uint32_t pause_ms = 250;
  write_standard_output("Velmora starts in another window; this one closes by itself.\n");
  const std::int64_t deadline_ns = steady_now_ns() + limit_ns;
  while (steady_now_ns() < deadline_ns) {
    const RunState state = read_run_state();
    if (state.run) return open_page(*state.run);
    sleep_ms(pause_ms);
  }
  return {CommandCode::not_started,
          "Velmora has not started as administrator, or runs for another account: see its own window, and "
          "open the address that it shows."};
}

enum class Elevation { refused, started };

Elevation offer_elevation(const CommandArguments& arguments) {
  write_standard_output(
      "Velmora needs administrator rights to be added to a device or removed from one, to restart audio,\n"
      "and to start while no sound goes through the effect.\n");
  if (!ask("Start Velmora as administrator?")) return Elevation::refused;
  std::vector<std::string> again = {"start", "--window"};
  again.insert(again.end(), arguments.service_options.begin(), arguments.service_options.end());
  if (start_as_administrator(own_module_path(), again) == 0) return Elevation::started;
  write_standard_output("Windows has not started it as administrator. It starts with your own rights.\n");
  return Elevation::refused;
}

WatchedEnd start_in_window(const CommandArguments& arguments) {
  if (read_run_state().is_held) {
    write_standard_output("Velmora is already running. Its page opens in the browser.\n");
    return end_of(open_running_page());
  }
  const bool is_elevated = own_process_is_elevated();
  if (!is_elevated && offer_elevation(arguments) == Elevation::started) {
    return end_of(open_page_of_elevated());
  }
  explain_start_window();
  // A browser would get an administrator's rights from us.
  if (is_elevated) {
    write_standard_output("If no page opens, double-click start.cmd again: it opens the page.\n\n");
  }
  return run_service_child(arguments, !is_elevated);
}

}  // namespace

int start_command(const CommandArguments& arguments) {
  console_events = 0;
  const WatchedEnd end = arguments.window ? start_in_window(arguments) : run_service_child(arguments, false);
  if (!end.sentence.empty()) {
    write_standard_error((arguments.window ? name_scripts(end.sentence) : end.sentence) + '\n');
  }
  // Nothing is left to end cleanly.
  delay_end_after_close(0);
  if (arguments.window && end.exit_code != 0) wait_for_enter();
  return end.exit_code;
}

}  // namespace velmora
