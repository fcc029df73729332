// A sound file: RIFF/WAVE, 16-bit integer samples, one channel, 48000 Hz.
#pragma once

#include <cstdint>
#include <filesystem>

namespace velmora::effect {

// Writes `seconds` (0..300) of a sine of `tone_hz` (whole, up to 24000) block by block under a temporary name
// beside `path`, and then gives it its own: nobody sees half a file by that name. A former file goes. False,
// with nothing left under the temporary name, where something failed.
[[nodiscard]] bool write_wave_file(const std::filesystem::path& path, unsigned seconds, unsigned tone_hz);

}  // namespace velmora::effect
