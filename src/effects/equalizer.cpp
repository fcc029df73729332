#include "effects/equalizer.h"

#include <optional>

#include "json/find.h"
#include "json/write.h"

namespace velmora {
namespace {

// The numbers of one band, not yet checked.
struct BandNumbers {
  float type = 0;
  float freq_hz = 0;
  float gain_db = 0;
  float q = 0;
};

std::optional<BandNumbers> find_band_numbers(std::string_view text) {
  const auto type = json_find_number(text, "type");
  const auto freq_hz = json_find_number(text, "freq_hz");
  const auto gain_db = json_find_number(text, "gain_db");
  const auto q = json_find_number(text, "q");
  if (!type || !freq_hz || !gain_db || !q) return std::nullopt;
  return BandNumbers{*type, *freq_hz, *gain_db, *q};
}

bool is_within(float value, float low, float high) { return !(value < low) && !(value > high); }

// Returns the message of the first rule that a band breaks, or empty. Types are truncated: 8.9 is valid.
std::string_view find_broken_rule(const BandNumbers& band) {
  if (!(band.type >= 0 && band.type < 9)) return "band type must be 0..8";
  if (!is_within(band.freq_hz, 20.0f, 20000.0f)) return "freq_hz must be 20..20000";
  if (!is_within(band.gain_db, -30.0f, 30.0f)) return "gain_db must be -30..30";
  if (!is_within(band.q, 0.1f, 18.0f)) return "q must be 0.1..18";
  return {};
}

// Removes the next band from the front of `text`: from its brace to the first closing one, since bands are
// flat. Text between bands is skipped. Empty if no band is left. `malformed` is set if one is not closed.
std::string_view take_band_text(std::string_view& text, bool& malformed) {
  malformed = false;
  const std::size_t open = text.find('{');
  if (open == std::string_view::npos) return {};
  const std::size_t close = text.find('}', open);
  malformed = close == std::string_view::npos;
  if (malformed) return {};
  const std::string_view band = text.substr(open, close - open + 1);
  text.remove_prefix(close + 1);
  return band;
}

// Fills the bands from the text of the array; text after the last band is ignored. Returns an error or empty.
std::string_view parse_bands(std::string_view text, EqSettings& settings) {
  for (EqBand& band : settings.bands) {
    bool malformed = false;
    const std::string_view band_text = take_band_text(text, malformed);
    if (malformed) return "malformed band object";
    if (band_text.empty()) return "bands must contain exactly 15 entries";
    const auto numbers = find_band_numbers(band_text);
    if (!numbers) return "each band needs type, freq_hz, gain_db and q";
    if (const std::string_view broken = find_broken_rule(*numbers); !broken.empty()) return broken;
    band = {static_cast<std::int32_t>(numbers->type), numbers->freq_hz, numbers->gain_db, numbers->q};
  }
  return {};
}

}  // namespace

static_assert(eq_band_count == 15, "the refusal of a short list names the number");

Parsed<EqSettings> parse_eq(std::string_view body, EqSettings settings) {
  const auto bands = json_find_array(body, "bands");
  if (!bands) return {settings, "bands must be an array"};
  if (const std::string_view error = parse_bands(*bands, settings); !error.empty()) return {settings, error};
  settings.bypass = json_find_bool(body, "bypass").value_or(settings.bypass);
  const auto fade_ms = json_find_number(body, "fade_ms");
  if (fade_ms && !is_within(*fade_ms, 1.0f, 200.0f)) return {settings, "fade_ms must be 1..200"};
  settings.fade_ms = fade_ms.value_or(settings.fade_ms);
  return {settings, {}};
}

void write_eq_json(std::string& out, const EqSettings& settings) {
  constexpr std::size_t longest_band = 96;
  out.reserve(out.size() + eq_band_count * longest_band);
  out += settings.bypass ? "{\"bypass\":true,\"fade_ms\":" : "{\"bypass\":false,\"fade_ms\":";
  append_number(out, settings.fade_ms);
  out += ",\"bands\":";
  char separator = '[';
  for (const EqBand& band : settings.bands) {
    out += separator;
    out += "{\"type\":";
    append_integer(out, band.type);
    out += ",\"freq_hz\":";
    append_number(out, band.freq_hz);
    out += ",\"gain_db\":";
    append_number(out, band.gain_db);
    out += ",\"q\":";
    append_number(out, band.q);
    out += '}';
    separator = ',';
  }
  out += "]}";
}

}  // namespace velmora
