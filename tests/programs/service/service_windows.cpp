#include "service_windows.h"

#include <windows.h>

#include "log_windows.h"

namespace velmora::service {
namespace {

// The manager calls back without a word of ours.
struct Running {
  Options options;
  SERVICE_STATUS_HANDLE status = nullptr;
  HANDLE stop_asked = nullptr;
};

Running& running() {
  static Running all;
  return all;
}

void say(const char* word) { append_to_log(running().options.log, running().options.name, word); }

void report(DWORD state, DWORD accepted, DWORD wait_hint_ms, DWORD exit_code = NO_ERROR) {
  SERVICE_STATUS status{};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state;
  status.dwControlsAccepted = accepted;
  status.dwWaitHint = wait_hint_ms;
  status.dwWin32ExitCode = exit_code;
  SetServiceStatus(running().status, &status);
}

// A state on the way to another one, in which no control is accepted. For ever is INFINITE to Sleep too.
void linger(DWORD pending, std::uint32_t duration_ms) {
  if (duration_ms == 0) return;
  report(pending, 0, duration_ms);
  Sleep(duration_ms);
}

DWORD WINAPI take_control(DWORD control, DWORD, void*, void*) {
  if (control == SERVICE_CONTROL_INTERROGATE) return NO_ERROR;
  if (control != SERVICE_CONTROL_STOP) return ERROR_CALL_NOT_IMPLEMENTED;
  if (const DWORD error = running().options.stop_error) {
    say("refused");
    return error;
  }
  say("stop");
  // The caller's next question must not find it running.
  report(SERVICE_STOP_PENDING, 0, running().options.stop_ms);
  SetEvent(running().stop_asked);
  return NO_ERROR;
}

void WINAPI service_main(DWORD, LPWSTR*) {
  const Options& options = running().options;
  running().status = RegisterServiceCtrlHandlerExW(options.name.c_str(), take_control, nullptr);
  if (running().status == nullptr) return;
  report(SERVICE_START_PENDING, 0, options.start_ms);
  say("start");
  linger(SERVICE_START_PENDING, options.start_ms);
  if (options.start_error != 0) {
    say("stopped");
    report(SERVICE_STOPPED, 0, 0, options.start_error);
    return;
  }
  say("running");
  // With this error the manager refuses by itself, where a service does not take the control at all.
  const bool accepts_stop = options.stop_error != ERROR_INVALID_SERVICE_CONTROL;
  report(SERVICE_RUNNING, accepts_stop ? SERVICE_ACCEPT_STOP : 0, 0);
  WaitForSingleObject(running().stop_asked, INFINITE);
  linger(SERVICE_STOP_PENDING, options.stop_ms);
  say("stopped");
  report(SERVICE_STOPPED, 0, 0);
}

}  // namespace

int run_service(const Options& options) {
  running().options = options;
  if (options.exits_at_start) {
    say("start");
    return 1;
  }
  running().stop_asked = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  SERVICE_TABLE_ENTRYW table[] = {{running().options.name.data(), service_main}, {nullptr, nullptr}};
  return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}

}  // namespace velmora::service
