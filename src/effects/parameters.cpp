#include "effects/parameters.h"

#include <optional>

#include "json/find.h"

namespace velmora {
namespace {

struct NumberRule {
  std::string_view key;
  float low;
  float high;
  std::string_view message;
};

// In order of checking. The limiter flag, which is never out of range, comes between the third and the
// fourth. Fractions pass and are truncated, although two messages name only integers.
constexpr NumberRule output_trim_rule{"output_trim_db", -60.0f, 20.0f,
                                      "output_trim_db must be between -60 and 20"};
constexpr NumberRule mask_time_rule{"mask_time_alpha", 0.0f, 0.95f,
                                    "mask_time_alpha must be between 0 and 0.95"};
constexpr NumberRule mask_frequency_rule{"mask_frequency_smooth", 0.0f, 1.0f,
                                         "mask_frequency_smooth must be 0 or 1"};
constexpr NumberRule limiter_ceiling_rule{"limiter_ceiling_db", -12.0f, 0.0f,
                                          "limiter_ceiling_db must be between -12 and 0"};
constexpr NumberRule stereo_link_rule{"stereo_link", 0.0f, 2.0f, "stereo_link must be 0, 1 or 2"};

// Assigns the number of a key to `value`, truncated if that is an integer. Returns false if it is out of
// range. An absent key is no error.
template <typename Value>
bool apply_number(std::string_view body, const NumberRule& rule, Value& value) {
  const std::optional<float> number = json_find_number(body, rule.key);
  if (!number) return true;
  if (*number < rule.low || *number > rule.high) return false;
  value = static_cast<Value>(*number);
  return true;
}

}  // namespace

Parsed<AlgorithmParameters> parse_algorithm_body(std::string_view body, AlgorithmParameters parameters) {
  const auto refuse = [&](const NumberRule& rule) {
    return Parsed<AlgorithmParameters>{parameters, rule.message};
  };
  if (!apply_number(body, output_trim_rule, parameters.output_trim_db)) return refuse(output_trim_rule);
  if (!apply_number(body, mask_time_rule, parameters.mask_time_alpha)) return refuse(mask_time_rule);
  if (!apply_number(body, mask_frequency_rule, parameters.mask_frequency_smooth)) {
    return refuse(mask_frequency_rule);
  }
  parameters.limiter_enabled = json_find_bool(body, "limiter_enabled").value_or(parameters.limiter_enabled);
  if (!apply_number(body, limiter_ceiling_rule, parameters.limiter_ceiling_db)) {
    return refuse(limiter_ceiling_rule);
  }
  if (!apply_number(body, stereo_link_rule, parameters.stereo_link)) return refuse(stereo_link_rule);
  return {parameters, {}};
}

Parsed<FootstepParameters> parse_footstep_body(std::string_view body) {
  const std::optional<bool> bypass = json_find_bool(body, "bypass");
  const std::optional<float> strength = json_find_number(body, "enhance_strength");
  const bool bypass_all = json_find_bool(body, "bypass_all").value_or(false);
  if (!bypass || !strength || *strength < 0 || *strength > 1) {
    return {{}, "bypass and enhance_strength (0..1) are required"};
  }
  return {{*bypass, bypass_all, *strength, 0}, {}};
}

}  // namespace velmora
