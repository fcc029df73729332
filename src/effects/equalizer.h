// The JSON form of an equalizer setting, shared by the live equalizer and the presets. Pure.
#pragma once

#include <string>
#include <string_view>

#include "base/parsed.h"
#include "bridge/record.h"

namespace velmora {

// Returns `settings` updated from the body. All 15 bands are required; `bypass` and `fade_ms` are optional.
[[nodiscard]] Parsed<EqSettings> parse_eq(std::string_view body, EqSettings settings);

// Appends the setting as JSON, floats with 6 significant digits and without the revision:
// {"bypass":true,"fade_ms":20,"bands":[{"type":0,"freq_hz":20,"gain_db":0,"q":0.707},...]}
void write_eq_json(std::string& out, const EqSettings& settings);

}  // namespace velmora
