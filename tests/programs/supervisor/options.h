// The command line of the supervisor.
#pragma once

#include <optional>
#include <string>

namespace velmora::supervisor {

struct Options {
  std::string engine;             // the engine's program
  std::string effect_library;     // that an engine loads when a device has the effect in its chain
  std::string algorithm_library;  // that the effect loads; empty: none
  std::string service_log;        // that the service writes (VELMORA_SERVICE_LOG)
  std::string life_state;         // that the effect reads (--life-state)
  bool keep_running = false;      // the engine keeps its process over a restart of the audio service
};

extern const char usage[];

// No value when an argument is unknown, lacks its value, or one that is needed is missing.
[[nodiscard]] std::optional<Options> parse_options(int argc, const char* const* argv);

}  // namespace velmora::supervisor
