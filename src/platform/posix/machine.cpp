#include "platform/machine.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "base/text.h"

namespace velmora {
namespace {

std::atomic<bool (*)(std::uint32_t)> console_handler{nullptr};
static_assert(decltype(console_handler)::is_always_lock_free);  // read in a signal handler

constexpr struct {
  int signal;
  std::uint32_t event;
} console_signals[] = {{SIGINT, 0}, {SIGQUIT, 1}, {SIGHUP, 2}, {SIGTERM, 6}};

void on_console_signal(int signal) {
  const int saved_error = errno;
  for (const auto& entry : console_signals) {
    if (entry.signal == signal) console_handler.load()(entry.event);
  }
  errno = saved_error;
}

bool is_ignored(int signal) {
  struct sigaction present {};
  return sigaction(signal, nullptr, &present) == 0 && present.sa_handler == SIG_IGN;
}

void report_failure(int failure_pipe) {
  const int error = errno;
  static_cast<void>(!write(failure_pipe, &error, sizeof error));
}

// Runs in the grandchild: drops our descriptors and executes the browser. Its calls are safe after fork.
[[noreturn]] void become_browser(const char* address, int failure_pipe) {
  // If we were started without standard streams, the pipe may have one of their numbers.
  const int failure = fcntl(failure_pipe, F_DUPFD_CLOEXEC, 3);
  // Descriptors inherited from our parent must not reach the browser: a reader would never see their end.
  close_range(3, ~0u, CLOSE_RANGE_CLOEXEC);
  const int null_device = open("/dev/null", O_RDWR);
  for (int stream = 0; stream <= 2; ++stream) dup2(null_device, stream);
  if (null_device > 2) ::close(null_device);
  signal(SIGPIPE, SIG_DFL);
  execlp("xdg-open", "xdg-open", address, static_cast<char*>(nullptr));
  report_failure(failure);
  _exit(127);
}

bool write_stream(int stream, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(stream, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

std::string own_module_path() {
  std::array<char, PATH_MAX> buffer{};
  const ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
  return length <= 0 ? std::string() : std::string(buffer.data(), static_cast<std::size_t>(length));
}

void DynamicLibraryKind::release(Native native) noexcept { dlclose(native); }

DynamicLibrary load_library(std::string_view path) {
  return DynamicLibrary(dlopen(std::string(path).c_str(), RTLD_NOW | RTLD_LOCAL));
}

LibraryFunction find_library_function(const DynamicLibrary& library, const char* name) {
  return reinterpret_cast<LibraryFunction>(dlsym(library.native(), name));
}

std::int32_t start_com() { return 0; }
void stop_com() {}

void prepare_process() {
  // Opens each closed standard stream on the null device, in order, so that it gets its own number. Otherwise
  // the next file or connection would get that number, and the banner would be written into it.
  for (int stream = 0; stream <= 2; ++stream) {
    if (fcntl(stream, F_GETFD) < 0) static_cast<void>(open("/dev/null", O_RDWR));
  }
  signal(SIGPIPE, SIG_IGN);
}

bool write_standard_output(std::string_view text) { return write_stream(STDOUT_FILENO, text); }
void write_standard_error(std::string_view text) { write_stream(STDERR_FILENO, text); }

void install_console_handler(bool (*handler)(std::uint32_t event)) {
  console_handler = handler;
  for (const auto& entry : console_signals) {
    // A SIGHUP ignored by nohup stays ignored. A SIGINT that a shell ignores for background jobs is handled.
    if (entry.signal == SIGHUP && is_ignored(SIGHUP)) continue;
    struct sigaction action {};
    action.sa_handler = on_console_signal;
    action.sa_flags = SA_RESTART;
    sigaction(entry.signal, &action, nullptr);
  }
}

std::intptr_t open_in_browser(std::string_view address) {
  constexpr std::intptr_t file_not_found = 2;  // SE_ERR_FNF
  constexpr std::intptr_t started = 33;
  const std::string text(address);
  int failure_pipe[2];
  if (pipe2(failure_pipe, O_CLOEXEC) != 0) return 0;
  const pid_t child = fork();
  if (child == 0) {
    // The child exits at once, so the browser is not our child and leaves no zombie.
    setsid();
    const pid_t grandchild = fork();
    if (grandchild == 0) become_browser(text.c_str(), failure_pipe[1]);
    if (grandchild < 0) report_failure(failure_pipe[1]);
    _exit(0);
  }
  ::close(failure_pipe[1]);
  int error = 0;
  // End of file means that exec succeeded and closed the pipe.
  const bool failed = child < 0 || read(failure_pipe[0], &error, sizeof error) > 0;
  ::close(failure_pipe[0]);
  if (child > 0) waitpid(child, nullptr, 0);
  return failed ? file_not_found : started;
}

bool fill_random(unsigned char* buffer, std::size_t size) {
  std::size_t filled = 0;
  while (filled < size) {
    const ssize_t count = getrandom(buffer + filled, size - filled, 0);
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) filled += static_cast<std::size_t>(count);
  }
  return true;
}

std::string machine_identifier() {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen("/etc/machine-id", "re"),
                                                             std::fclose);
  std::array<char, 64> line{};
  if (!file || std::fgets(line.data(), line.size(), file.get()) == nullptr) return {};
  std::string identifier = line.data();
  identifier.resize(std::min(identifier.find('\n'), identifier.size()));
  // The content before the first boot (machine-id(5)), identical on all machines.
  if (identifier == "uninitialized") return {};
  return identifier;
}

std::string machine_name() {
  std::array<char, HOST_NAME_MAX + 1> name{};
  return gethostname(name.data(), name.size()) == 0 ? name.data() : std::string();
}

std::u16string environment_variable(std::u16string_view name) {
  const char* value = std::getenv(utf8_from_wide_replacing(name).c_str());
  return value == nullptr ? std::u16string() : wide_from_utf8_replacing(value);
}

std::uint32_t own_process_id() { return static_cast<std::uint32_t>(getpid()); }

}  // namespace velmora
