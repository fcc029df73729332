// Services and processes for the tests on Windows: the test service, and a command interpreter that waits for
// its first command.
#include <windows.h>

#include <map>
#include <string>
#include <vector>

#include "base/text.h"
#include "platform/surroundings.h"

namespace velmora::surroundings {
namespace {

std::wstring wide_of(std::u16string_view text) { return {text.begin(), text.end()}; }

std::wstring wide_library_path() { return wide_of(wide_from_utf8(library_path())); }

std::wstring beside_library(const wchar_t* name) {
  const std::wstring path = wide_library_path();
  return path.substr(0, path.rfind(L'\\') + 1) + name;
}

std::vector<std::wstring>& installed_services() {
  static std::vector<std::wstring> names;
  return names;
}

// The test service registers and removes itself.
void run_service_program(const std::wstring& arguments) {
  constexpr DWORD limit_ms = 60'000;
  std::wstring line = L'"' + beside_library(L"velmora_test_service.exe") + L"\" " + arguments;
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  ASSERT_TRUE(CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                             nullptr, &startup, &process));
  EXPECT_EQ(WaitForSingleObject(process.hProcess, limit_ms), WAIT_OBJECT_0);
  DWORD code = 1;
  EXPECT_TRUE(GetExitCodeProcess(process.hProcess, &code));
  EXPECT_EQ(code, 0u);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
}

std::wstring option_text(const wchar_t* option, std::uint32_t number) {
  return number == 0 ? std::wstring() : option + std::to_wstring(number);
}

// A service that is open somewhere stays in the list until it is closed.
void expect_service_gone(const std::wstring& name) {
  const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
  ASSERT_NE(manager, nullptr);
  const SC_HANDLE service = OpenServiceW(manager, name.c_str(), SERVICE_QUERY_STATUS);
  const DWORD error = GetLastError();
  EXPECT_EQ(service, nullptr) << "a service is left open";
  if (service == nullptr) {
    EXPECT_EQ(error, DWORD{ERROR_SERVICE_DOES_NOT_EXIST});
  } else {
    CloseServiceHandle(service);
  }
  CloseServiceHandle(manager);
}

struct RunningProcess {
  HANDLE process = nullptr;
  HANDLE input = nullptr;  // which it waits for
};

std::map<std::uint32_t, RunningProcess>& running_processes() {
  static std::map<std::uint32_t, RunningProcess> all;
  return all;
}

}  // namespace

void set_up_services() { ASSERT_TRUE(installed_services().empty()); }

void install_service(const ArrangedService& service) {
  std::wstring line = L"install " + wide_of(service.name);
  line += option_text(L" --start-ms ", service.start_ms);
  line += option_text(L" --stop-ms ", service.stop_ms);
  line += option_text(L" --refuse-stop ", service.stop_error);
  if (service.is_disabled) line += L" --disabled";
  for (const std::u16string& need : service.needs) line += L" --depends " + wide_of(need);
  run_service_program(line);
  installed_services().push_back(wide_of(service.name));
}

// Those that need others were installed behind them.
void tear_down_services() {
  while (!installed_services().empty()) {
    run_service_program(L"remove " + installed_services().back());
    expect_service_gone(installed_services().back());
    installed_services().pop_back();
  }
}

void set_up_process_lists() {}

void ListedProcessKind::release(Native native) noexcept {
  const RunningProcess running = running_processes().at(native);
  running_processes().erase(native);
  TerminateProcess(running.process, 0);
  EXPECT_EQ(WaitForSingleObject(running.process, 20'000), WAIT_OBJECT_0);
  CloseHandle(running.process);
  CloseHandle(running.input);
}

// It has come so far when it asks for its first command.
ListedProcess start_listed_process() {
  SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  HANDLE input_end = nullptr;
  HANDLE output = nullptr;
  HANDLE output_end = nullptr;
  RunningProcess running;
  EXPECT_TRUE(CreatePipe(&input_end, &running.input, &inherited, 0));
  EXPECT_TRUE(CreatePipe(&output, &output_end, &inherited, 0));
  SetHandleInformation(running.input, HANDLE_FLAG_INHERIT, 0);
  SetHandleInformation(output, HANDLE_FLAG_INHERIT, 0);
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = input_end;
  startup.hStdOutput = output_end;
  startup.hStdError = output_end;
  std::wstring line = L"cmd.exe";
  PROCESS_INFORMATION process{};
  EXPECT_TRUE(CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr,
                             &startup, &process));
  CloseHandle(process.hThread);
  CloseHandle(input_end);
  CloseHandle(output_end);
  char first = 0;
  DWORD count = 0;
  EXPECT_TRUE(ReadFile(output, &first, 1, &count, nullptr));
  CloseHandle(output);
  running.process = process.hProcess;
  running_processes()[process.dwProcessId] = running;
  return ListedProcess(process.dwProcessId);
}

std::u16string listed_process_name() { return u"cmd.exe"; }

void LoadedLibraryKind::release(Native native) noexcept {
  EXPECT_TRUE(FreeLibrary(static_cast<HMODULE>(native)));
}

LoadedLibrary load_listed_library() {
  const HMODULE library = LoadLibraryW(wide_library_path().c_str());
  EXPECT_NE(library, nullptr);
  return LoadedLibrary(library);
}

// Of a token that is not elevated, the group of the administrators is taken.
bool runs_elevated() {
  SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
  PSID administrators = nullptr;
  EXPECT_TRUE(AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0,
                                       0, 0, 0, 0, 0, &administrators));
  BOOL is_member = FALSE;
  EXPECT_TRUE(CheckTokenMembership(nullptr, administrators, &is_member));
  FreeSid(administrators);
  return is_member != FALSE;
}

}  // namespace velmora::surroundings
