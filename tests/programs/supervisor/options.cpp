#include "options.h"

#include <string_view>

namespace velmora::supervisor {

const char usage[] =
    "usage: velmora_test_supervisor --engine PROGRAM --effect LIBRARY [--algorithm LIBRARY]\n"
    "         --service-log FILE --life-state FILE [--keep-running]\n"
    "Starts and ends the engine with the audio service of the machine VELMORA_MACHINE, and plays sound "
    "where\n"
    "that machine says (velmora_machine play).\n";

std::optional<Options> parse_options(int argc, const char* const* argv) {
  constexpr struct {
    std::string_view name;
    std::string Options::*option;
  } texts[] = {{"--engine", &Options::engine},
               {"--effect", &Options::effect_library},
               {"--algorithm", &Options::algorithm_library},
               {"--service-log", &Options::service_log},
               {"--life-state", &Options::life_state}};
  Options options;
  for (int index = 1; index < argc; ++index) {
    const std::string_view name = argv[index];
    if (name == "--keep-running") {
      options.keep_running = true;
      continue;
    }
    bool taken = false;
    for (const auto& text : texts) {
      if (text.name != name || index + 1 == argc) continue;
      options.*text.option = argv[++index];
      taken = true;
      break;
    }
    if (!taken) return std::nullopt;
  }
  const bool is_whole = !options.engine.empty() && !options.effect_library.empty() &&
                        !options.service_log.empty() && !options.life_state.empty();
  return is_whole ? std::optional(options) : std::nullopt;
}

}  // namespace velmora::supervisor
