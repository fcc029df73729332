// Probes of the effect: whether it is installed, and whether the audio engine has loaded it. Both only read,
// query the system on each call, and keep nothing.
#pragma once

#include <cstdint>
#include <string>

namespace velmora {

// Values that cannot be determined are false or empty.
struct EffectInstallState {
  bool elevated = false;          // this process runs elevated
  bool clsid_registered = false;  // a library is registered for the effect's class id
  // Informational: the value DisableProtectedAudioDG is 1 in the registry key HKEY_LOCAL_MACHINE,
  // SOFTWARE\Microsoft\Windows NT\CurrentVersion\Audio.
  bool protected_audio_dg_disabled = false;
  bool apo_dll_present = false;    // that library is a regular file
  bool algorithm_present = false;  // fse.dll and model_weights.bin are regular files beside it
  std::string apo_dll_path;        // a non-ASCII character is replaced by `?`
};

[[nodiscard]] EffectInstallState probe_effect_install();

struct AudioEngineState {
  bool running = false;  // a process audiodg.exe exists
  std::uint32_t process_id = 0;
  bool apo_loaded = false;        // the effect is among its modules
  bool algorithm_loaded = false;  // fse.dll is among them
  std::string apo_module_path;    // path of the effect's module; a non-ASCII character is replaced by `?`
  // A status value (base/status.h): why processes or modules could not be listed. After an error, a false
  // flag above means "unknown".
  std::int32_t error_code = 0;
};

[[nodiscard]] AudioEngineState probe_audio_engine();

}  // namespace velmora
