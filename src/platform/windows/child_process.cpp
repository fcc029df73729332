// A child in a job of its own, with a console without a window and two pipes. Windows cannot wait for
// anonymous pipes and a process at once, so the pipes are looked at in intervals.
#include "platform/child_process.h"

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include "platform/clock.h"
#include "platform/files.h"
#include "platform/windows/handle.h"
#include "platform/windows/native.h"

#include <shellapi.h>

namespace velmora {
namespace {

constexpr DWORD look_interval_ms = 20;
constexpr DWORD end_exit_code = 1;

// The reading end of a pipe that the child writes to.
struct Stream {
  ChildEvent::Kind kind;
  Handle pipe;
  DWORD rest = 0;  // bytes still to read; valid after the end of the child
};

struct Child {
  DWORD id;
  Handle process;
  Handle job;  // closing it ends the child
  std::array<Stream, 2> streams;
  std::size_t next = 0;  // the stream to read first, so that neither holds up the other
  std::optional<std::uint32_t> exit_code = std::nullopt;
};

Child& child_of(const ChildProcess& child) { return *static_cast<Child*>(child.native()); }

// Quotes an argument so that CommandLineToArgvW and the C library read it unchanged: backslashes are doubled
// before a quotation mark, where they would be escapes, and nowhere else.
std::wstring quote(const std::wstring& argument) {
  std::wstring quoted = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t unit : argument) {
    if (unit == L'"') quoted.append(backslashes + 1, L'\\');
    backslashes = unit == L'\\' ? backslashes + 1 : 0;
    quoted += unit;
  }
  return quoted.append(backslashes, L'\\') += L'"';
}

bool has_zero(const std::vector<std::string>& texts) {
  return std::any_of(texts.begin(), texts.end(),
                     [](const std::string& text) { return text.find('\0') != std::string::npos; });
}

std::wstring quote_all(const std::vector<std::string>& arguments) {
  std::wstring line;
  for (const std::string& argument : arguments) {
    if (!line.empty()) line += L' ';
    line += quote(wide_text(wide_from_utf8_replacing(argument)));
  }
  return line;
}

// Makes a pipe whose writing end the child can inherit.
bool make_pipe(Handle& reading, Handle& writing) {
  constexpr DWORD size = 65536;
  HANDLE read_end = nullptr;
  HANDLE write_end = nullptr;
  if (!CreatePipe(&read_end, &write_end, nullptr, size)) return false;
  reading = Handle(read_end);
  writing = Handle(write_end);
  return SetHandleInformation(write_end, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT) != 0;
}

// A job that ends with its last handle, which the system closes however this process ends. What the child
// starts (a browser) is outside of it.
Handle make_job() {
  Handle job(CreateJobObjectW(nullptr, nullptr));
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags =
      JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE | JOB_OBJECT_LIMIT_SILENT_BREAKAWAY_OK;
  if (job.is_open() &&
      !SetInformationJobObject(job.native(), JobObjectExtendedLimitInformation, &limits, sizeof limits))
    job.close();
  return job;
}

// A list of attributes for CreateProcessW that lets the child inherit these handles and no others.
class InheritedHandles {
 public:
  explicit InheritedHandles(std::array<HANDLE, 3> handles) : handles_(handles) {
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    bytes_.resize(size);
    is_made_ = InitializeProcThreadAttributeList(list(), 1, 0, &size) != 0;
    is_filled_ = is_made_ && UpdateProcThreadAttribute(list(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST,
                                                       handles_.data(), sizeof handles_, nullptr, nullptr);
  }
  InheritedHandles(const InheritedHandles&) = delete;
  InheritedHandles& operator=(const InheritedHandles&) = delete;
  ~InheritedHandles() {
    if (is_made_) DeleteProcThreadAttributeList(list());
  }

  [[nodiscard]] bool is_filled() const { return is_filled_; }
  [[nodiscard]] LPPROC_THREAD_ATTRIBUTE_LIST list() {
    return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(bytes_.data());
  }

 private:
  std::array<HANDLE, 3> handles_;
  std::vector<std::byte> bytes_;
  bool is_made_ = false;
  bool is_filled_ = false;
};

struct Suspended {
  Handle process;
  Handle thread;
  DWORD id = 0;
};

// Starts the program before its first step.
std::uint32_t start_suspended(const std::wstring& program, std::wstring command,
                              std::array<HANDLE, 3> standard_handles, Suspended& out) {
  InheritedHandles inherited(standard_handles);
  if (!inherited.is_filled()) return last_error();
  STARTUPINFOEXW start{};
  start.StartupInfo.cb = sizeof start;
  start.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
  start.StartupInfo.hStdInput = standard_handles[0];
  start.StartupInfo.hStdOutput = standard_handles[1];
  start.StartupInfo.hStdError = standard_handles[2];
  start.lpAttributeList = inherited.list();
  constexpr DWORD flags = CREATE_NO_WINDOW | CREATE_SUSPENDED | EXTENDED_STARTUPINFO_PRESENT;
  PROCESS_INFORMATION made{};
  // A child also inherits whether Ctrl+C is ignored. We ignore it if we were started in the background
  // (`start /b`) or in a process group of our own, and nothing could interrupt the child then.
  SetConsoleCtrlHandler(nullptr, FALSE);
  if (!CreateProcessW(program.c_str(), command.data(), nullptr, nullptr, TRUE, flags, nullptr, nullptr,
                      &start.StartupInfo, &made))
    return last_error();
  out = {Handle(made.hProcess), Handle(made.hThread), made.dwProcessId};
  return 0;
}

// Bytes that wait in the pipe. Closes it at its end.
DWORD waiting_bytes(Stream& stream) {
  DWORD waiting = 0;
  if (stream.pipe.is_open() && !PeekNamedPipe(stream.pipe.native(), nullptr, 0, nullptr, &waiting, nullptr)) {
    stream.pipe.close();
  }
  return waiting;
}

// Reads up to `limit` bytes of those that wait, so it does not block. Empty if reading fails.
std::string read_piece(Stream& stream, DWORD limit) {
  std::array<char, 16384> buffer;
  const DWORD wanted = std::min(limit, static_cast<DWORD>(buffer.size()));
  DWORD count = 0;
  if (!ReadFile(stream.pipe.native(), buffer.data(), wanted, &count, nullptr) || count == 0) {
    stream.pipe.close();
    return {};
  }
  return {buffer.data(), count};
}

bool has_ended(const Child& child, DWORD timeout_ms) {
  return WaitForSingleObject(child.process.native(), timeout_ms) == WAIT_OBJECT_0;
}

// What is in the pipes now is all that the child wrote. Its own children may write more.
void note_end(Child& child) {
  DWORD exit_code = 0;
  GetExitCodeProcess(child.process.native(), &exit_code);
  child.exit_code = exit_code;
  for (Stream& stream : child.streams) stream.rest = waiting_bytes(stream);
}

// Takes the next output after the end of the child, then the end itself.
ChildEvent take_rest(Child& child) {
  for (Stream& stream : child.streams) {
    while (stream.pipe.is_open() && stream.rest > 0) {
      std::string bytes = read_piece(stream, stream.rest);
      stream.rest -= static_cast<DWORD>(bytes.size());
      if (!bytes.empty()) return {stream.kind, std::move(bytes), 0};
    }
  }
  return {ChildEvent::Kind::ended, {}, *child.exit_code};
}

std::optional<ChildEvent> take_output(Child& child) {
  for (std::size_t turn = 0; turn < child.streams.size(); ++turn) {
    const std::size_t index = (child.next + turn) % child.streams.size();
    Stream& stream = child.streams[index];
    const DWORD waiting = waiting_bytes(stream);
    if (waiting == 0) continue;
    std::string bytes = read_piece(stream, waiting);
    if (bytes.empty()) continue;
    child.next = (index + 1) % child.streams.size();
    return ChildEvent{stream.kind, std::move(bytes), 0};
  }
  return std::nullopt;
}

// Joins the console of the other process and sends the event to all that share it, this process excepted.
std::uint32_t send_interrupt(std::uint32_t process_id, const Handle& process) {
  constexpr DWORD delivery_ms = 200;
  if (!AttachConsole(process_id)) {
    const DWORD error = last_error();
    return WaitForSingleObject(process.native(), 0) == WAIT_OBJECT_0 ? DWORD{ERROR_INVALID_PARAMETER} : error;
  }
  SetConsoleCtrlHandler(nullptr, TRUE);
  const DWORD error = GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0) ? 0 : last_error();
  // The event is delivered by a thread in each process. This one must still be of the console then.
  if (error == 0) WaitForSingleObject(process.native(), delivery_ms);
  return error;
}

}  // namespace

void ChildProcessKind::release(Native native) noexcept {
  constexpr DWORD end_wait_ms = 5000;
  const std::unique_ptr<Child> child(static_cast<Child*>(native));
  // The end takes a moment, in which the child's files are still open.
  if (TerminateProcess(child->process.native(), end_exit_code)) has_ended(*child, end_wait_ms);
}

std::uint32_t start_child(std::string_view program, const std::vector<std::string>& arguments,
                          ChildProcess& out) {
  if (has_zero(arguments)) return ERROR_INVALID_PARAMETER;
  // Systems differ in the error for a folder.
  if (query_file_kind(program) == FileKind::directory) return ERROR_ACCESS_DENIED;
  Handle output;
  Handle errors;
  Handle output_end;
  Handle errors_end;
  if (!make_pipe(output, output_end) || !make_pipe(errors, errors_end)) return last_error();
  SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
  const Handle input = own_file(CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                            &inheritable, OPEN_EXISTING, 0, nullptr));
  if (!input.is_open()) return last_error();
  Handle job = make_job();
  if (!job.is_open()) return last_error();
  const std::wstring path = wide_path(program);
  std::wstring command = L"\"" + path + L"\"";
  if (!arguments.empty()) command += L" " + quote_all(arguments);
  Suspended started;
  if (const std::uint32_t error = start_suspended(
          path, std::move(command), {input.native(), output_end.native(), errors_end.native()}, started);
      error != 0) {
    return error;
  }
  if (!AssignProcessToJobObject(job.native(), started.process.native())) {
    const std::uint32_t error = last_error();
    TerminateProcess(started.process.native(), end_exit_code);
    return error;
  }
  ResumeThread(started.thread.native());
  out = ChildProcess(new Child{started.id,
                               std::move(started.process),
                               std::move(job),
                               {Stream{ChildEvent::Kind::output, std::move(output)},
                                Stream{ChildEvent::Kind::error_output, std::move(errors)}}});
  return 0;
}

std::uint32_t child_process_id(const ChildProcess& child) { return child_of(child).id; }

ChildEvent wait_for_child(const ChildProcess& child, std::uint32_t timeout_ms) {
  Child& state = child_of(child);
  if (state.exit_code) return take_rest(state);
  const std::int64_t deadline_ns = steady_now_ns() + std::int64_t{timeout_ms} * 1'000'000;
  bool ended = has_ended(state, 0);
  for (;;) {
    if (ended) {
      note_end(state);
      return take_rest(state);
    }
    if (auto event = take_output(state)) return *std::move(event);
    const std::int64_t rest_ms = (deadline_ns - steady_now_ns() + 999'999) / 1'000'000;
    if (rest_ms <= 0) return {};
    ended = has_ended(state, static_cast<DWORD>(std::min<std::int64_t>(rest_ms, look_interval_ms)));
  }
}

// A process that has ended refuses with access denied.
bool end_child(const ChildProcess& child) {
  const Child& state = child_of(child);
  return TerminateProcess(state.process.native(), end_exit_code) || has_ended(state, 0);
}

std::uint32_t interrupt_process(std::uint32_t process_id) {
  const Handle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, process_id));
  if (!process.is_open()) return last_error();
  if (WaitForSingleObject(process.native(), 0) == WAIT_OBJECT_0) return ERROR_INVALID_PARAMETER;
  FreeConsole();
  const std::uint32_t error = send_interrupt(process_id, process);
  FreeConsole();
  return error;
}

std::uint32_t start_as_administrator(std::string_view program, const std::vector<std::string>& arguments) {
  if (has_zero(arguments)) return ERROR_INVALID_PARAMETER;
  const std::wstring path = wide_path(program);
  const std::wstring parameters = quote_all(arguments);
  SHELLEXECUTEINFOW start{};
  start.cbSize = sizeof start;
  // The call returns when the user has answered, and shows no message of its own on failure.
  start.fMask = SEE_MASK_NOASYNC | SEE_MASK_FLAG_NO_UI;
  start.lpVerb = L"runas";
  start.lpFile = path.c_str();
  start.lpParameters = parameters.c_str();
  start.nShow = SW_SHOWNORMAL;
  return ShellExecuteExW(&start) ? 0 : last_error();
}

}  // namespace velmora
