// The servers that are measured, as child processes of this one, and the end of the program when a
// measurement cannot be had.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace velmora::bench {

// Tells why on standard error and exits with 1. Objects of static duration are taken down, and so the servers
// and files that they own.
[[noreturn]] void give_up(const std::string& why);

// From here on Ctrl+C and a request to end are noticed by give_up_if_interrupted.
void notice_interruption();
void give_up_if_interrupted();

// Keeps this process off the processor on which servers run, if there is a second one. To be called once,
// before the first server. Returns a sentence for the table.
std::string part_processors();

// Nanoseconds, one clock for all processes.
[[nodiscard]] std::int64_t now_ns();

// A port of 127.0.0.1 that nobody listens on.
[[nodiscard]] std::uint16_t free_port();

// One running server; its end asks the process to stop and waits for it.
class ServerProcess {
 public:
  // Starts `arguments[0]` with its standard output thrown away.
  explicit ServerProcess(const std::vector<std::string>& arguments);
  ServerProcess(ServerProcess&& other) noexcept;
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;
  ServerProcess& operator=(ServerProcess&&) = delete;
  ~ServerProcess();

  // When exec was called.
  [[nodiscard]] std::int64_t started_ns() const { return started_ns_; }
  // Gives up when the server has ended by itself.
  void expect_running() const;
  // Returns once the process is stopped.
  void stop() const;
  void go_on() const;
  // Processor time of the process up to now, nanoseconds.
  [[nodiscard]] std::int64_t processor_ns() const;
  // Lets peak_kilobytes begin anew with what is held now.
  void forget_peak() const;
  // Most memory that it ever held, kilobytes (VmHWM).
  [[nodiscard]] long peak_kilobytes() const;

 private:
  pid_t pid_ = -1;
  std::int64_t started_ns_ = 0;
};

}  // namespace velmora::bench
