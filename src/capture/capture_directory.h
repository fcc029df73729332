// The directory and the names of capture files.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace velmora {

// The value of --capture-directory (a path, UTF-8); empty if not given. Set once, before the loop starts.
inline std::string capture_directory_override;

// The files of one export, in the order of inspection and in the archive. They hold the signal at four
// points: from the host, into the algorithm, out of the algorithm, and back to the host.
inline constexpr std::array<std::string_view, 4> capture_file_names = {
    "capture-1-host-in.wav",
    "capture-2-algorithm-in.wav",
    "capture-3-algorithm-out.wav",
    "capture-4-host-out.wav",
};

// Returns the directory where the effect writes its captures (UTF-8). This is --capture-directory, else the
// text `CaptureDirectory` of HKEY_LOCAL_MACHINE, SOFTWARE\Velmora (64-bit view, at most 259 characters), else
// C:\ProgramData\Velmora\wav. Looked up on each call, without checking that it exists.
[[nodiscard]] std::string capture_directory();

}  // namespace velmora
