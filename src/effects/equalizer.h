// The JSON form of an equalizer setting, which the live equalizer and the presets share. Pure.
#pragma once

#include <string>
#include <string_view>

#include "bridge/record.h"

namespace velmora {

// Takes a body into `settings`: all 15 bands, and `bypass` and `fade_ms` where the body gives them. On
// failure `error` holds the reason, a fixed text, and `settings` may be half overwritten and must not be
// used.
[[nodiscard]] bool parse_eq(std::string_view body, EqSettings& settings, std::string_view& error);

// Appends the setting:
// {"bypass":true,"fade_ms":20,"bands":[{"type":0,"freq_hz":20,"gain_db":0,"q":0.707},...]}, floats with 6
// significant digits. The revision is not written.
void write_eq_json(std::string& out, const EqSettings& settings);

}  // namespace velmora
