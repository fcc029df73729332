// The finders and the two parameter bodies take any bytes; what they let through keeps its promises.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "effects/parameters.h"
#include "json/find.h"

namespace velmora {
namespace {

void require(bool held) {
  if (!held) std::abort();
}

void check(std::string_view body) {
  static_cast<void>(json_find_bool(body, "bypass"));
  if (const auto number = json_find_number(body, "x")) require(std::isfinite(*number));
  if (const auto text = json_find_string(body, "x")) require(text->size() <= body.size());
  if (const auto array = json_find_array(body, "x")) {
    require(array->data() >= body.data() && array->data() + array->size() < body.data() + body.size());
  }
  const auto [parameters, parameters_error] = parse_algorithm_body(body, {});
  if (parameters_error.empty()) {
    require(parameters.output_trim_db >= -60 && parameters.output_trim_db <= 20);
    require(parameters.mask_time_alpha >= 0 && parameters.mask_time_alpha <= 0.95f);
    require(parameters.mask_frequency_smooth >= 0 && parameters.mask_frequency_smooth <= 1);
    require(parameters.limiter_ceiling_db >= -12 && parameters.limiter_ceiling_db <= 0);
    require(parameters.stereo_link >= 0 && parameters.stereo_link <= 2);
  }
  const auto [footstep, footstep_error] = parse_footstep_body(body);
  if (footstep_error.empty()) require(footstep.enhance_strength >= 0 && footstep.enhance_strength <= 1);
}

}  // namespace
}  // namespace velmora

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velmora::check({reinterpret_cast<const char*>(data), size});
  return 0;
}
