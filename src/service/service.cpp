#include "service/service.h"

#include <iomanip>
#include <ostream>
#include <string>

#include "base/text.h"
#include "bridge/mapping.h"
#include "capture/capture_directory.h"
#include "effects/preset_directory.h"
#include "platform/clock.h"
#include "platform/machine.h"
#include "platform/sockets.h"
#include "service/console.h"
#include "service/loop.h"
#include "service/pages.h"
#include "service/self_test.h"
#include "service/token.h"
#include "status/algorithm_version.h"

namespace velmora {
namespace {

constexpr int error_address_in_use = 10048;  // WSAEADDRINUSE, winsock2.h

// What a running service has, in the order in which it is had.
struct Service {
  const Options& options;
  UiPages pages;
  std::string session_token;
  ControlBridge bridge;
};

std::string page_address(const Service& service, std::string_view path) {
  return "http://127.0.0.1:" + std::to_string(service.options.port) + std::string(path) +
         "?token=" + service.session_token;
}

bool load_pages(Service& service, std::ostream& error_out) {
  if (const auto unreadable = read_pages(service.options.web_root, service.pages)) {
    error_out << "Unable to read " << std::quoted(*unreadable) << '\n';
    return false;
  }
  std::tm local_time{};
  stamp_pages(service.pages, read_local_time(local_time) ? format_ui_stamp(local_time) : std::string());
  return true;
}

bool choose_token(Service& service, std::ostream& error_out) {
  service.session_token = service.options.token ? *service.options.token : generate_session_token();
  if (!service.session_token.empty()) return true;
  error_out << "Unable to generate a session token\n";
  return false;
}

bool create_bridge(Service& service, std::ostream& error_out) {
  std::string message;
  if (service.bridge.create(wide_from_signed_bytes(service.options.control_map), message)) return true;
  error_out << "Unable to create shared control bridge: " << message << '\n';
  return false;
}

// Binds and listens; the error of whichever failed.
int start_listening(const Socket& listener, std::uint16_t port) {
  const int bind_error = bind_loopback(listener, port);
  return bind_error != 0 ? bind_error : listen_at_maximum(listener);
}

void explain_not_bound(std::uint16_t port, int error, std::ostream& error_out) {
  error_out << "Unable to bind 127.0.0.1:" << port << " (Winsock error " << error << ")\n";
  if (error != error_address_in_use) return;
  error_out << "Another control service is already running on this port.\n"
               "Stop it first (run the stop script, or end velmora_control_demo), then start again.\n";
}

void print_banner(const Service& service, std::ostream& out) {
  out << "Velmora " << application_version << "  (algorithm " << algorithm_version << ")\n";
  out << "  Open: " << page_address(service, "/") << '\n';
  if (!service.options.verbose) return;
  out << "  Advanced: " << page_address(service, "/advanced.html") << '\n';
  out << "  Web root: " << std::quoted(service.options.web_root) << '\n';
  out << "  Control map: " << service.options.control_map << " (shared_memory_v" << record_layout_version
      << ")\n";
}

void show_in_browser(const Service& service, std::ostream& out) {
  constexpr std::intptr_t greatest_failure = 32;  // ShellExecuteW, shellapi.h
  if (open_in_browser(page_address(service, "/")) > greatest_failure) return;
  out << "  (could not open a browser automatically -- copy the address above into one)\n" << std::flush;
}

ExitCode listen_and_serve(Service& service, std::ostream& out, std::ostream& error_out) {
  const std::uint16_t port = service.options.port;
  Socket listener;
  if (open_tcp_socket(listener) != 0) return ExitCode::no_listener_socket;
  if (const int error = start_listening(listener, port); error != 0) {
    explain_not_bound(port, error, error_out);
    return ExitCode::not_bound;
  }
  install_console_handler(console_ctrl_handler);
  algorithm_version = probe_algorithm_version();
  print_banner(service, out);
  out << "  Press Ctrl+C to stop.\n" << std::flush;
  if (service.options.open_browser) show_in_browser(service, out);
  serve_until_stopped(listener, port, service.session_token, service.pages, service.bridge);
  return ExitCode::done;
}

ExitCode run_with_sockets(Service& service, std::ostream& out, std::ostream& error_out) {
  if (start_sockets() != 0) return ExitCode::no_sockets;
  const ExitCode code = listen_and_serve(service, out, error_out);
  stop_sockets();
  return code;
}

ExitCode run_with_com(Service& service, std::ostream& out, std::ostream& error_out) {
  const std::int32_t com = start_com();
  if (com < 0) {
    error_out << "CoInitializeEx failed: " << std::hex << static_cast<std::uint32_t>(com) << std::dec << '\n';
    return ExitCode::no_com;
  }
  const ExitCode code = run_with_sockets(service, out, error_out);
  stop_com();
  // These two are told when everything is down again.
  if (code == ExitCode::no_sockets) error_out << "WSAStartup failed\n";
  if (code == ExitCode::no_listener_socket) error_out << "socket failed\n";
  return code;
}

ExitCode run_service(const Options& options, std::ostream& out, std::ostream& error_out) {
  capture_directory_override = options.capture_directory;
  preset_directory_override = options.preset_directory;
  Service service{options, {}, {}, {}};
  if (!load_pages(service, error_out)) return ExitCode::page_unreadable;
  if (!choose_token(service, error_out)) return ExitCode::no_token;
  if (!create_bridge(service, error_out)) return ExitCode::no_bridge;
  return run_with_com(service, out, error_out);
}

}  // namespace

ExitCode run_program(const std::vector<std::string_view>& arguments, std::ostream& out,
                     std::ostream& error_out) {
  const ParsedCommandLine parsed = parse_command_line(arguments);
  switch (parsed.action) {
    case ParsedCommandLine::Action::self_test:
      return run_self_test(out) ? ExitCode::done : ExitCode::self_test_failed;
    case ParsedCommandLine::Action::refuse: error_out << parsed.refusal; return ExitCode::bad_command_line;
    case ParsedCommandLine::Action::serve: break;
  }
  return run_service(parsed.options, out, error_out);
}

}  // namespace velmora
