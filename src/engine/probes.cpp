#include "engine/probes.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "base/ascii.h"
#include "base/status.h"
#include "base/text.h"
#include "binding/binding.h"
#include "platform/files.h"
#include "platform/processes.h"
#include "platform/registry.h"

namespace velmora {
namespace {

constexpr std::u16string_view engine_name = u"audiodg.exe";
constexpr std::u16string_view effect_name = u"velmora_windows_apo.dll";
constexpr std::u16string_view algorithm_name = u"fse.dll";

// Reads the path of the library registered for the effect's class. Returns false if there is none.
bool read_registered_path(std::u16string& path) {
  std::array<char16_t, 260> buffer{};
  const std::u16string key =
      u"SOFTWARE\\Classes\\CLSID\\" + wide_from_ascii(effect_clsid_text()) + u"\\InprocServer32";
  if (get_registry_value(key, u"", rrf_rt_reg_sz, buffer.data(), sizeof buffer).error != 0) return false;
  path.assign(buffer.begin(), std::find(buffer.begin(), buffer.end(), u'\0'));
  return true;
}

bool is_one(std::u16string_view key, std::u16string_view name) {
  std::uint32_t value = 0;
  return get_registry_value(key, name, rrf_rt_reg_dword, &value, sizeof value).error == 0 && value == 1;
}

bool is_regular_file(std::string_view path) { return query_file_kind(path) == FileKind::regular; }

// Finds the engine's process. If it returns false, `error` is 0 if there is none, else the error of listing.
bool find_engine(std::uint32_t& process_id, std::uint32_t& error) {
  ProcessSnapshot processes;
  error = snapshot_processes(processes);
  if (error != 0) return false;
  ProcessEntry process;
  for (bool more = first_process(processes, process); more; more = next_process(processes, process)) {
    if (!equal_ignoring_case(process.file_name, engine_name)) continue;
    process_id = process.process_id;
    return true;
  }
  return false;
}

void note_module(const ModuleEntry& module, AudioEngineState& state) {
  if (equal_ignoring_case(module.name, effect_name)) {
    state.apo_loaded = true;
    state.apo_module_path = ascii_from_wide(module.path);
  } else if (equal_ignoring_case(module.name, algorithm_name)) {
    state.algorithm_loaded = true;
  }
}

}  // namespace

EffectInstallState probe_effect_install() {
  EffectInstallState state;
  state.elevated = own_process_is_elevated();
  std::u16string registered;
  if (read_registered_path(registered)) {
    state.clsid_registered = true;
    state.apo_dll_path = ascii_from_wide(registered);
    // The displayed path has lost characters, so look for files by the path as registered.
    const std::string path = utf8_from_wide_replacing(registered);
    const std::string directory = parent_path(path);
    state.apo_dll_present = is_regular_file(path);
    state.algorithm_present = is_regular_file(join_path(directory, "fse.dll")) &&
                              is_regular_file(join_path(directory, "model_weights.bin"));
  }
  state.protected_audio_dg_disabled =
      is_one(u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Audio", u"DisableProtectedAudioDG");
  return state;
}

AudioEngineState probe_audio_engine() {
  AudioEngineState state;
  std::uint32_t error = 0;
  state.running = find_engine(state.process_id, error);
  state.error_code = hresult_from_win32(error);
  if (!state.running) return state;
  ModuleSnapshot modules;
  error = snapshot_modules(state.process_id, modules);
  ModuleEntry module;
  if (error == 0) error = first_module(modules, module);
  state.error_code = hresult_from_win32(error);
  if (error != 0) return state;
  do {
    note_module(module, state);
  } while (next_module(modules, module));
  return state;
}

}  // namespace velmora
