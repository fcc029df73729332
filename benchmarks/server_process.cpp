#include "server_process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <utility>

namespace velmora::bench {
namespace {

volatile std::sig_atomic_t interrupted = 0;
int server_processor = -1;  // -1: servers run on any processor

void run_on(int processor) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<unsigned>(processor), &set);
  sched_setaffinity(0, sizeof set, &set);
}

std::int64_t nanoseconds_of(const timespec& time) {
  return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
}

// Runs in the child. Returns the time of exec to the parent through shared memory.
[[noreturn]] void become_server(std::vector<char*>& arguments, std::int64_t* started_ns) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (server_processor >= 0) run_on(server_processor);
  dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
  *started_ns = now_ns();
  execv(arguments[0], arguments.data());
  _exit(127);
}

}  // namespace

void give_up(const std::string& why) {
  std::fprintf(stderr, "%s\n", why.c_str());
  std::exit(1);
}

void notice_interruption() {
  struct sigaction action {};
  action.sa_handler = [](int) { interrupted = 1; };
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

void give_up_if_interrupted() {
  if (interrupted != 0) give_up("interrupted");
}

std::string part_processors() {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  sched_getaffinity(0, sizeof allowed, &allowed);
  int first = -1;
  int last = -1;
  for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
    if (!CPU_ISSET(static_cast<unsigned>(processor), &allowed)) continue;
    if (first < 0) first = processor;
    last = processor;
  }
  if (first == last) return "One processor carries servers and clients.";
  run_on(first);
  server_processor = last;
  return "Servers run on processor " + std::to_string(last) + ", clients on processor " +
         std::to_string(first) + ".";
}

std::int64_t now_ns() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return nanoseconds_of(time);
}

std::uint16_t free_port() {
  const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (bind(probe, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    give_up("no free port");
  }
  close(probe);
  return ntohs(address.sin_port);
}

ServerProcess::ServerProcess(const std::vector<std::string>& arguments) {
  std::vector<char*> pointers;
  for (const std::string& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  void* shared =
      mmap(nullptr, sizeof(std::int64_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) give_up("no shared memory");
  auto* started_ns = static_cast<std::int64_t*>(shared);
  int exec_done[2];
  if (pipe2(exec_done, O_CLOEXEC) != 0) give_up("no pipe");
  pid_ = fork();
  if (pid_ < 0) give_up("no process for " + arguments[0]);
  if (pid_ == 0) become_server(pointers, started_ns);
  close(exec_done[1]);
  char nothing = 0;
  static_cast<void>(!read(exec_done[0], &nothing, 1));  // returns when exec closes the child's end
  close(exec_done[0]);
  started_ns_ = *started_ns;
  munmap(shared, sizeof(std::int64_t));
}

ServerProcess::ServerProcess(ServerProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), started_ns_(other.started_ns_) {}

ServerProcess::~ServerProcess() {
  if (pid_ < 0) return;
  kill(pid_, SIGTERM);
  kill(pid_, SIGCONT);
  while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

void ServerProcess::expect_running() const {
  siginfo_t info{};
  if (waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0) {
    give_up("a server ended by itself with " + std::to_string(info.si_status));
  }
}

void ServerProcess::stop() const {
  int status = 0;
  kill(pid_, SIGSTOP);
  if (waitpid(pid_, &status, WUNTRACED) != pid_ || !WIFSTOPPED(status)) give_up("a server does not stop");
}

void ServerProcess::go_on() const { kill(pid_, SIGCONT); }

std::int64_t ServerProcess::processor_ns() const {
  clockid_t clock = 0;
  timespec time{};
  if (clock_getcpuclockid(pid_, &clock) != 0 || clock_gettime(clock, &time) != 0)
    give_up("no processor clock");
  return nanoseconds_of(time);
}

void ServerProcess::forget_peak() const {
  std::ofstream references("/proc/" + std::to_string(pid_) + "/clear_refs");
  // 5 resets the peak (proc(5)).
  if (!(references << "5" << std::flush)) give_up("the peak of memory cannot be reset");
}

long ServerProcess::peak_kilobytes() const {
  std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
  std::string line;
  const std::string label = "VmHWM:";
  while (std::getline(status, line)) {
    if (line.starts_with(label)) return std::strtol(line.c_str() + label.size(), nullptr, 10);
  }
  give_up("no peak memory");
}

}  // namespace velmora::bench
