// The JSON form of an equalizer setting, which the live equalizer and the presets share. Pure.
#pragma once

#include <string>
#include <string_view>

#include "base/parsed.h"
#include "bridge/record.h"

namespace velmora {

// `settings` with what the body gives: all 15 bands, and `bypass` and `fade_ms` where it has them.
[[nodiscard]] Parsed<EqSettings> parse_eq(std::string_view body, EqSettings settings);

// Appends the setting:
// {"bypass":true,"fade_ms":20,"bands":[{"type":0,"freq_hz":20,"gain_db":0,"q":0.707},...]}, floats with 6
// significant digits. The revision is not written.
void write_eq_json(std::string& out, const EqSettings& settings);

}  // namespace velmora
