// The engine's process, as its parent sees it.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace velmora::supervisor {

// Owns the process: it ends with the object, and by itself when this program has gone (its input ends).
class EngineProcess {
 public:
  EngineProcess() = default;
  ~EngineProcess() { end(); }
  EngineProcess(const EngineProcess&) = delete;
  EngineProcess& operator=(const EngineProcess&) = delete;

  // False when it cannot be started. A former one is ended first.
  [[nodiscard]] bool start(const std::string& program);
  // Asks it to load a library; it prints whether it did.
  void load(std::string_view library) const;
  void end();
  // Notices an end that came from outside.
  [[nodiscard]] bool is_running();
  [[nodiscard]] pid_t id() const { return id_; }

 private:
  void forget();

  pid_t id_ = 0;     // 0: none
  int orders_ = -1;  // its standard input
};

}  // namespace velmora::supervisor
