#include "registration_windows.h"

#include <windows.h>

#include <array>

namespace velmora::service {
namespace {

constexpr int rounds = 100;
constexpr DWORD pause_ms = 50;  // five seconds altogether

// A handle of the service control manager; null is none.
struct ManagerHandle {
  SC_HANDLE native = nullptr;
  explicit ManagerHandle(SC_HANDLE opened) : native(opened) {}
  ManagerHandle(const ManagerHandle&) = delete;
  ManagerHandle& operator=(const ManagerHandle&) = delete;
  ~ManagerHandle() {
    if (native != nullptr) CloseServiceHandle(native);
  }
};

ManagerHandle open_manager() {
  return ManagerHandle(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE));
}

SERVICE_STATUS_PROCESS status_of(const ManagerHandle& service) {
  SERVICE_STATUS_PROCESS status{};
  DWORD needed = 0;
  QueryServiceStatusEx(service.native, SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                       sizeof status, &needed);
  return status;
}

// A service that never stops by itself has to be ended, and one that is on its way can be asked nothing. The
// manager may take a moment to see it, or under Wine never see it: the service goes all the same.
void end_process(const ManagerHandle& service) {
  const DWORD id = status_of(service).dwProcessId;
  if (id == 0) return;
  const HANDLE process = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, id);
  if (process == nullptr) return;
  TerminateProcess(process, 1);
  WaitForSingleObject(process, rounds * pause_ms);
  CloseHandle(process);
}

DWORD remove_from(const ManagerHandle& manager, const std::wstring& name) {
  const ManagerHandle service(OpenServiceW(manager.native, name.c_str(), DELETE | SERVICE_QUERY_STATUS));
  if (service.native == nullptr) {
    const DWORD error = GetLastError();
    return error == ERROR_SERVICE_DOES_NOT_EXIST ? NO_ERROR : error;
  }
  end_process(service);
  if (DeleteService(service.native)) return NO_ERROR;
  const DWORD error = GetLastError();
  return error == ERROR_SERVICE_MARKED_FOR_DELETE ? NO_ERROR : error;
}

std::wstring own_path() {
  std::array<wchar_t, 1024> buffer{};
  const DWORD length = GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
  return {buffer.data(), length};
}

std::wstring quoted(const std::wstring& text) { return L'"' + text + L'"'; }

// "install NAME OPTIONS" becomes "run NAME OPTIONS".
std::wstring command_line(const std::vector<std::wstring>& arguments) {
  std::wstring line = quoted(own_path()) + L" run";
  for (std::size_t index = 1; index < arguments.size(); ++index) line += L' ' + quoted(arguments[index]);
  return line;
}

// As the manager takes it: each with its terminator, and one more behind the last.
std::wstring joined(const std::vector<std::wstring>& names) {
  std::wstring text;
  for (const std::wstring& name : names) text += name + L'\0';
  return text;
}

}  // namespace

DWORD install(const Options& options, const std::vector<std::wstring>& arguments) {
  const ManagerHandle manager = open_manager();
  if (manager.native == nullptr) return GetLastError();
  if (const DWORD error = remove_from(manager, options.name)) return error;
  const std::wstring line = command_line(arguments);
  const std::wstring needs = joined(options.needs);
  DWORD error = NO_ERROR;
  // Whoever has the former one open keeps the name for himself until he closes it.
  for (int round = 0; round < rounds; ++round) {
    const ManagerHandle service(CreateServiceW(manager.native, options.name.c_str(), options.name.c_str(),
                                               SERVICE_QUERY_STATUS, SERVICE_WIN32_OWN_PROCESS,
                                               options.is_disabled ? SERVICE_DISABLED : SERVICE_DEMAND_START,
                                               SERVICE_ERROR_IGNORE, line.c_str(), nullptr, nullptr,
                                               needs.empty() ? nullptr : needs.c_str(), nullptr, nullptr));
    if (service.native != nullptr) return NO_ERROR;
    error = GetLastError();
    if (error != ERROR_SERVICE_MARKED_FOR_DELETE) return error;
    Sleep(pause_ms);
  }
  return error;
}

DWORD remove(const std::wstring& name) {
  const ManagerHandle manager = open_manager();
  return manager.native == nullptr ? GetLastError() : remove_from(manager, name);
}

}  // namespace velmora::service
