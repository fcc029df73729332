// A child in a process group of its own, with two pipes. It is not reaped before its owner is closed, so no
// other process gets its id.
#include "platform/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/drives.h"
#include "platform/posix/errors.h"

namespace velmora {
namespace {

struct Pipe {
  Descriptor reading;
  Descriptor writing;
};

// The reading end of a pipe that the child writes to.
struct Stream {
  ChildEvent::Kind kind;
  Descriptor pipe;
  std::size_t rest = 0;  // bytes still to read; valid after the end of the child
};

struct Child {
  pid_t id;
  Descriptor process;
  std::array<Stream, 2> streams;
  std::size_t next = 0;  // the stream to read first, so that neither holds up the other
  std::optional<std::uint32_t> exit_code = std::nullopt;
};

Child& child_of(const ChildProcess& child) { return *static_cast<Child*>(child.native()); }

template <typename Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

bool make_pipe(Pipe& out) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  out = {Descriptor(ends[0]), Descriptor(ends[1])};
  return true;
}

// If signals of ended children are ignored, the system reaps them at once. Whoever started us may have set
// this.
void keep_ended_children() {
  struct sigaction present {};
  if (sigaction(SIGCHLD, nullptr, &present) == 0 && present.sa_handler == SIG_IGN) signal(SIGCHLD, SIG_DFL);
}

// Above the standard streams, whose numbers a pipe gets if this process was started without them.
int moved_up(int descriptor) { return fcntl(descriptor, F_DUPFD_CLOEXEC, 3); }

// Runs in the child. Its calls are safe after fork.
[[noreturn]] void become_program(const char* path, char* const* arguments, pid_t parent,
                                 std::array<int, 2> pipes, int failure_pipe) {
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  // The parent may have ended before the call above.
  if (getppid() != parent) _exit(127);
  const int output = moved_up(pipes[0]);
  const int errors = moved_up(pipes[1]);
  const int failure = moved_up(failure_pipe);
  const int input = moved_up(open("/dev/null", O_RDONLY | O_CLOEXEC));
  // Descriptors inherited from our own parent.
  close_range(3, ~0u, CLOSE_RANGE_CLOEXEC);
  dup2(input, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(errors, STDERR_FILENO);
  signal(SIGPIPE, SIG_DFL);
  signal(SIGINT, SIG_DFL);  // shells ignore it for background jobs
  execv(path, arguments);
  const int error = errno;
  static_cast<void>(!write(failure, &error, sizeof error));
  _exit(127);
}

std::uint32_t start_error(const std::string& path, int error) {
  if (error != ENOENT) return win32_from_errno(error);
  return query_file_kind(parent_path(path)) == FileKind::directory ? error_file_not_found
                                                                   : error_path_not_found;
}

void reap(pid_t id) {
  uninterrupted([&] { return waitpid(id, nullptr, 0); });
}

// pidfd_open(2). Becomes readable when the process ends.
Descriptor open_process(pid_t id) { return Descriptor(static_cast<int>(syscall(SYS_pidfd_open, id, 0))); }

// The exit code of an ended child, which stays unreaped.
std::uint32_t read_exit_code(pid_t id) {
  siginfo_t end{};
  uninterrupted([&] { return waitid(P_PID, static_cast<id_t>(id), &end, WEXITED | WNOWAIT); });
  constexpr int signal_base = 128;
  return static_cast<std::uint32_t>(end.si_code == CLD_EXITED ? end.si_status : signal_base + end.si_status);
}

// What is in the pipes now is all that the child wrote. Its own children may write more.
void note_end(Child& child) {
  child.exit_code = read_exit_code(child.id);
  for (Stream& stream : child.streams) {
    int waiting = 0;
    if (stream.pipe.is_open() && ioctl(stream.pipe.native(), FIONREAD, &waiting) == 0) {
      stream.rest = static_cast<std::size_t>(waiting);
    }
  }
}

// Reads up to `limit` bytes. At the end of the stream, closes it and returns an empty text.
std::string read_piece(Stream& stream, std::size_t limit) {
  std::array<char, 16384> buffer;
  const std::size_t wanted = std::min(limit, buffer.size());
  const ssize_t count = uninterrupted([&] { return read(stream.pipe.native(), buffer.data(), wanted); });
  if (count > 0) return {buffer.data(), static_cast<std::size_t>(count)};
  stream.pipe.close();
  return {};
}

// Takes the next output after the end of the child, then the end itself.
ChildEvent take_rest(Child& child) {
  for (Stream& stream : child.streams) {
    while (stream.pipe.is_open() && stream.rest > 0) {
      std::string bytes = read_piece(stream, stream.rest);
      stream.rest -= bytes.size();
      if (!bytes.empty()) return {stream.kind, std::move(bytes), 0};
    }
  }
  return {ChildEvent::Kind::ended, {}, *child.exit_code};
}

int milliseconds_until(std::int64_t deadline_ns) {
  const std::int64_t rest_ms = (deadline_ns - steady_now_ns() + 999'999) / 1'000'000;
  return static_cast<int>(std::clamp<std::int64_t>(rest_ms, 0, std::numeric_limits<int>::max()));
}

// One wait. No value: a stream has ended, and nothing else.
std::optional<ChildEvent> wait_once(Child& child, int timeout_ms) {
  const auto watch = [](const Descriptor& descriptor) {
    return pollfd{descriptor.is_open() ? descriptor.native() : -1, POLLIN, 0};
  };
  std::array<pollfd, 3> watched{watch(child.streams[0].pipe), watch(child.streams[1].pipe),
                                watch(child.process)};
  // A signal ends the wait: its handler may have set a flag that the caller looks at.
  if (poll(watched.data(), watched.size(), timeout_ms) <= 0) return ChildEvent();
  if (watched[2].revents != 0) {
    note_end(child);
    return take_rest(child);
  }
  for (std::size_t turn = 0; turn < child.streams.size(); ++turn) {
    const std::size_t index = (child.next + turn) % child.streams.size();
    if (watched[index].revents == 0) continue;
    std::string bytes = read_piece(child.streams[index], std::numeric_limits<std::size_t>::max());
    if (bytes.empty()) continue;
    child.next = (index + 1) % child.streams.size();
    return ChildEvent{child.streams[index].kind, std::move(bytes), 0};
  }
  return std::nullopt;
}

}  // namespace

void ChildProcessKind::release(Native native) noexcept {
  const std::unique_ptr<Child> child(static_cast<Child*>(native));
  kill(child->id, SIGKILL);
  reap(child->id);
}

std::uint32_t start_child(std::string_view program, const std::vector<std::string>& arguments,
                          ChildProcess& out) {
  std::vector<std::string> texts{native_path(program)};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& text : texts) {
    if (text.find('\0') != std::string::npos) return error_invalid_parameter;
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  Pipe output;
  Pipe errors;
  Pipe failure;
  if (!make_pipe(output) || !make_pipe(errors) || !make_pipe(failure)) return win32_from_errno(errno);
  keep_ended_children();
  const pid_t parent = getpid();
  const pid_t id = fork();
  if (id < 0) return error_not_enough_memory;
  if (id == 0) {
    become_program(texts.front().c_str(), pointers.data(), parent,
                   {output.writing.native(), errors.writing.native()}, failure.writing.native());
  }
  failure.writing.close();
  int error = 0;
  // End of file means that exec succeeded and closed the pipe.
  if (uninterrupted([&] { return read(failure.reading.native(), &error, sizeof error); }) > 0) {
    reap(id);
    return start_error(texts.front(), error);
  }
  Descriptor process = open_process(id);
  if (!process.is_open()) {
    const std::uint32_t refused = win32_from_errno(errno);
    kill(id, SIGKILL);
    reap(id);
    return refused;
  }
  out = ChildProcess(new Child{id,
                               std::move(process),
                               {Stream{ChildEvent::Kind::output, std::move(output.reading)},
                                Stream{ChildEvent::Kind::error_output, std::move(errors.reading)}}});
  return 0;
}

std::uint32_t child_process_id(const ChildProcess& child) {
  return static_cast<std::uint32_t>(child_of(child).id);
}

ChildEvent wait_for_child(const ChildProcess& child, std::uint32_t timeout_ms) {
  Child& state = child_of(child);
  if (state.exit_code) return take_rest(state);
  const std::int64_t deadline_ns = steady_now_ns() + std::int64_t{timeout_ms} * 1'000'000;
  for (;;) {
    if (auto event = wait_once(state, milliseconds_until(deadline_ns))) return *std::move(event);
  }
}

bool end_child(const ChildProcess& child) { return kill(child_of(child).id, SIGKILL) == 0; }

std::uint32_t interrupt_process(std::uint32_t process_id) {
  // 0 and numbers below it name groups of processes.
  if (process_id == 0 || process_id > static_cast<std::uint32_t>(std::numeric_limits<pid_t>::max())) {
    return error_invalid_parameter;
  }
  if (kill(static_cast<pid_t>(process_id), SIGINT) == 0) return 0;
  return errno == ESRCH ? error_invalid_parameter : win32_from_errno(errno);
}

std::uint32_t start_as_administrator(std::string_view, const std::vector<std::string>&) {
  return error_not_supported;
}

}  // namespace velmora
