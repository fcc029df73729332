// Prints what the probes of the effect and the audio engine find, one field per line. The last line is the
// path of the engine's program.
//
// Usage: velmora_print_engine
//
// Exit codes: 0: printed; 2: bad usage; 10: the machine named by VELMORA_MACHINE cannot be read (Linux only).
#include <string>
#include <string_view>

#include "base/text.h"
#include "engine/probes.h"
#include "platform/machine.h"
#include "platform/processes.h"

namespace {

constexpr int exit_done = 0;
constexpr int exit_bad_usage = 2;
constexpr int exit_machine_unreadable = 10;

std::string line(std::string_view name, std::string_view value) {
  return std::string(name).append(" ").append(value).append("\n");
}

std::string flag_line(std::string_view name, bool value) { return line(name, value ? "true" : "false"); }

std::string install_text(const velmora::EffectInstallState& state) {
  std::string text = flag_line("elevated", state.elevated);
  text += flag_line("clsid_registered", state.clsid_registered);
  text += flag_line("protected_audio_dg_disabled", state.protected_audio_dg_disabled);
  text += flag_line("apo_dll_present", state.apo_dll_present);
  text += flag_line("algorithm_present", state.algorithm_present);
  text += line("apo_dll_path", state.apo_dll_path);
  return text;
}

std::string engine_text(const velmora::AudioEngineState& state) {
  std::string text = flag_line("running", state.running);
  text += line("process_id", std::to_string(state.process_id));
  text += flag_line("apo_loaded", state.apo_loaded);
  text += flag_line("algorithm_loaded", state.algorithm_loaded);
  text += line("apo_module_path", state.apo_module_path);
  text += line("error_code", std::to_string(state.error_code));
  const auto program = state.running ? velmora::process_image_path(state.process_id) : std::u16string();
  text += line("program", velmora::utf8_from_wide_replacing(program));
  return text;
}

}  // namespace

int main(int argc, char**) {
  velmora::prepare_process();
  if (argc != 1) {
    velmora::write_standard_error("Usage: velmora_print_engine\n");
    return exit_bad_usage;
  }
  if (const std::string trouble = velmora::load_machine(); !trouble.empty()) {
    velmora::write_standard_error("Unable to read the machine " + trouble + '\n');
    return exit_machine_unreadable;
  }
  std::string text = install_text(velmora::probe_effect_install());
  text += engine_text(velmora::probe_audio_engine());
  velmora::write_standard_output(text);
  return exit_done;
}
