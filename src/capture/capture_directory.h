// Where captures live, and what they are called.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace velmora {

// Value of --capture-directory (a path, UTF-8), empty without it. Set once, before the loop.
inline std::string capture_directory_override;

// The files of one export, in the order in which they are looked at and go into the archive: the signal as
// the host hands it to the effect, as it goes into the algorithm, as it comes out, and as the host gets it
// back.
inline constexpr std::array<std::string_view, 4> capture_file_names = {
    "capture-1-host-in.wav",
    "capture-2-algorithm-in.wav",
    "capture-3-algorithm-out.wav",
    "capture-4-host-out.wav",
};

// The directory in which the effect leaves its captures (UTF-8): --capture-directory, else the text
// `CaptureDirectory` of HKEY_LOCAL_MACHINE, SOFTWARE\Velmora (64-bit view, at most 259 characters), else
// C:\ProgramData\Velmora\wav. Looked up afresh each time; whether it exists is not looked at.
[[nodiscard]] std::string capture_directory();

}  // namespace velmora
