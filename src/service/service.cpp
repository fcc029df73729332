#include "service/service.h"

#include <array>
#include <charconv>
#include <string>

#include "account/session_check.h"
#include "base/text.h"
#include "base/version.h"
#include "bridge/mapping.h"
#include "capture/capture_directory.h"
#include "capture/preset_directory.h"
#include "engine/algorithm_version.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/machine.h"
#include "platform/sockets.h"
#include "service/console.h"
#include "service/loop.h"
#include "service/pages.h"
#include "service/self_test.h"
#include "service/token.h"

namespace velmora {
namespace {

// The options and the state of a running service.
struct Service {
  const Options& options;
  ServiceState state;
};

// Returns a path for messages: in double quotes, with a backslash before each backslash and double quote.
std::string quoted(std::string_view path) {
  std::string text = "\"";
  for (const char byte : path) {
    if (byte == '\\' || byte == '"') text += '\\';
    text += byte;
  }
  return text + '"';
}

// Returns lower-case hexadecimal digits without a prefix.
std::string hexadecimal(std::uint32_t value) {
  std::array<char, 8> digits;
  return std::string(digits.data(), std::to_chars(digits.begin(), digits.end(), value, 16).ptr);
}

std::string page_address(const Service& service, std::string_view path) {
  return "http://127.0.0.1:" + std::to_string(service.options.port) + std::string(path) +
         "?token=" + service.state.session_token;
}

bool read_machine() {
  const std::string trouble = load_machine();
  if (trouble.empty()) return true;
  write_standard_error("Unable to read the machine " + trouble + '\n');
  return false;
}

bool load_pages(Service& service) {
  std::string unreadable_path;
  if (!read_pages(service.options.web_root, service.state.pages, unreadable_path)) {
    write_standard_error("Unable to read " + quoted(unreadable_path) + '\n');
    return false;
  }
  std::tm local_time{};
  stamp_pages(service.state.pages, read_local_time(local_time) ? format_ui_stamp(local_time) : std::string());
  return true;
}

bool choose_token(Service& service) {
  service.state.session_token = service.options.token ? *service.options.token : generate_session_token();
  if (!service.state.session_token.empty()) return true;
  write_standard_error("Unable to generate a session token\n");
  return false;
}

bool create_bridge(Service& service) {
  std::string message;
  if (service.state.bridge.create(wide_from_signed_bytes(service.options.control_map), message)) return true;
  write_standard_error("Unable to create shared control bridge: " + message + '\n');
  return false;
}

// Binds and listens. Returns the error of the call that failed.
std::optional<int> start_listening(const Socket& listener, std::uint16_t port) {
  const std::optional<int> bind_error = bind_loopback(listener, port);
  return bind_error ? bind_error : listen_at_maximum(listener);
}

void explain_not_bound(std::uint16_t port, int error) {
  std::string message =
      "Unable to bind 127.0.0.1:" + std::to_string(port) + " (Winsock error " + std::to_string(error) + ")\n";
  if (error == wsaeaddrinuse) {
    message +=
        "Another control service is already running on this port.\n"
        "Stop it first (run the stop script, or end velmora_control_demo), then start again.\n";
  }
  write_standard_error(message);
}

std::string banner_of(const Service& service) {
  std::string banner = "Velmora ";
  banner.append(application_version).append("  (algorithm ").append(algorithm_version).append(")\n");
  banner += "  Open: " + page_address(service, "/") + '\n';
  if (service.options.verbose) {
    banner += "  Advanced: " + page_address(service, "/advanced.html") + '\n';
    banner += "  Web root: " + quoted(service.options.web_root) + '\n';
    banner += "  Control map: " + service.options.control_map + " (shared_memory_v" +
              std::to_string(record_layout_version) + ")\n";
  }
  return banner;
}

void show_in_browser(const Service& service) {
  constexpr std::intptr_t max_failure = 32;  // ShellExecuteW, shellapi.h
  if (open_in_browser(page_address(service, "/")) > max_failure) return;
  write_standard_output("  (could not open a browser automatically -- copy the address above into one)\n");
}

// The last exchange with the account service. It may delay the exit by its timeouts.
void release_session(const AccountState& account) {
  if (account.service_url.empty()) return;
  account_session_release(account.service_url, account.session.account_hash, account.session.token);
}

ExitCode listen_and_serve(Service& service) {
  const std::uint16_t port = service.options.port;
  Socket listener;
  if (open_tcp_socket(listener)) return ExitCode::no_listener_socket;
  if (const std::optional<int> error = start_listening(listener, port)) {
    explain_not_bound(port, *error);
    return ExitCode::not_bound;
  }
  install_console_handler(console_ctrl_handler);
  algorithm_version = probe_algorithm_version();
  write_standard_output(banner_of(service));
  remove_stale_session_file();
  write_standard_output("  Press Ctrl+C to stop.\n");
  if (service.options.open_browser) show_in_browser(service);
  service.state.port = port;
  serve_until_stopped(listener, service.state);
  release_session(service.state.account);
  return ExitCode::done;
}

ExitCode run_with_sockets(Service& service) {
  if (start_sockets()) return ExitCode::no_sockets;
  const ExitCode code = listen_and_serve(service);
  stop_sockets();
  return code;
}

ExitCode run_with_com(Service& service) {
  const std::int32_t com = start_com();
  if (com < 0) {
    write_standard_error("CoInitializeEx failed: " + hexadecimal(static_cast<std::uint32_t>(com)) + '\n');
    return ExitCode::no_com;
  }
  const ExitCode code = run_with_sockets(service);
  stop_com();
  // Report these two only after everything is released.
  if (code == ExitCode::no_sockets) write_standard_error("WSAStartup failed\n");
  if (code == ExitCode::no_listener_socket) write_standard_error("socket failed\n");
  return code;
}

ExitCode run_service(const Options& options) {
  capture_directory_override = options.capture_directory;
  preset_directory_override = options.preset_directory;
  Service service{options, {}};
  service.state.account.service_url = options.account_service;
  if (!read_machine()) return ExitCode::machine_unreadable;
  if (!load_pages(service)) return ExitCode::page_unreadable;
  if (!choose_token(service)) return ExitCode::no_token;
  if (!create_bridge(service)) return ExitCode::no_bridge;
  return run_with_com(service);
}

}  // namespace

ExitCode run_program(const std::vector<std::string_view>& arguments) {
  const ParsedCommandLine parsed = parse_command_line(arguments);
  switch (parsed.action) {
    case ParsedCommandLine::Action::self_test:
      return run_self_test() ? ExitCode::done : ExitCode::self_test_failed;
    case ParsedCommandLine::Action::refuse:
      write_standard_error(parsed.refusal);
      return ExitCode::bad_command_line;
    case ParsedCommandLine::Action::serve: break;
  }
  return run_service(parsed.options);
}

}  // namespace velmora
