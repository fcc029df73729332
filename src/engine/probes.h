// Whether the effect is installed, and whether the audio engine has loaded it. Both only read, ask afresh
// each time and keep nothing.
#pragma once

#include <cstdint>
#include <string>

namespace velmora {

// What could not be found out is false or empty.
struct EffectInstallState {
  bool elevated = false;          // this process runs elevated
  bool clsid_registered = false;  // the effect's class id names a library
  // For information: DisableProtectedAudioDG is 1 in
  // HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Audio.
  bool protected_audio_dg_disabled = false;
  bool apo_dll_present = false;    // that library is a regular file
  bool algorithm_present = false;  // fse.dll and model_weights.bin are regular files beside it
  std::string apo_dll_path;        // each character beyond ASCII is a `?`
};

[[nodiscard]] EffectInstallState probe_effect_install();

struct AudioEngineState {
  bool running = false;  // there is a process audiodg.exe
  std::uint32_t process_id = 0;
  bool apo_loaded = false;        // the effect is among its modules
  bool algorithm_loaded = false;  // fse.dll is
  std::string apo_module_path;    // of the effect's module; each character beyond ASCII is a `?`
  // A status value (base/status.h): why processes or modules could not be listed. With one, "not loaded"
  // means "not known".
  std::int32_t error_code = 0;
};

[[nodiscard]] AudioEngineState probe_audio_engine();

}  // namespace velmora
