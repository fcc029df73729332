// The measured servers as child processes, and the exit when a measurement is impossible.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace velmora::bench {

// Prints the reason on standard error and exits with 1. Destroys static objects, and with them the servers
// and files that they own.
[[noreturn]] void give_up(const std::string& why);

// After notice_interruption, Ctrl+C and SIGTERM are only recorded. give_up_if_interrupted acts on them.
void notice_interruption();
void give_up_if_interrupted();

// Keeps this process off the processor reserved for the servers, if there is more than one. Call it once,
// before starting the first server. Returns a sentence for the report.
std::string part_processors();

// Nanoseconds of a clock that all processes share.
[[nodiscard]] std::int64_t now_ns();

// Returns a free port of 127.0.0.1.
[[nodiscard]] std::uint16_t free_port();

// A running server. The destructor asks it to stop and waits for it.
class ServerProcess {
 public:
  // Starts `arguments[0]` and discards its standard output.
  explicit ServerProcess(const std::vector<std::string>& arguments);
  ServerProcess(ServerProcess&& other) noexcept;
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;
  ServerProcess& operator=(ServerProcess&&) = delete;
  ~ServerProcess();

  // The time of the exec call.
  [[nodiscard]] std::int64_t started_ns() const { return started_ns_; }
  // Gives up if the server has ended.
  void expect_running() const;
  // Suspends the process (SIGSTOP) and waits until it is stopped.
  void stop() const;
  void go_on() const;
  // Processor time used so far, nanoseconds.
  [[nodiscard]] std::int64_t processor_ns() const;
  // Resets peak_kilobytes to the current memory use.
  void forget_peak() const;
  // Peak memory, kilobytes (VmHWM).
  [[nodiscard]] long peak_kilobytes() const;

 private:
  pid_t pid_ = -1;
  std::int64_t started_ns_ = 0;
};

}  // namespace velmora::bench
