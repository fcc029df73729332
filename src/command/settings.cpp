#include "command/settings.h"

#include <cstddef>
#include <optional>

#include "command/words.h"

namespace velmora {
namespace {

std::string switch_text(std::optional<bool> on) {
  if (!on) return "?";
  return *on ? "on" : "off";
}

std::optional<bool> inverted(std::optional<bool> flag) { return flag ? std::optional(!*flag) : std::nullopt; }

// The device's name, or its id where the list has none.
std::string device_text(const StatusDocuments& documents) {
  const auto id = text_at(documents.now, {"apo_binding", "endpoint_id"});
  if (!id) return "?";
  if (id->empty()) return "none";
  const JsonNode* const render = find_node(documents.devices, {"render"});
  if (render == nullptr) return *id;
  for (const JsonNode& device : render->nodes) {
    const auto name = text_at(device, {"name"});
    if (text_at(device, {"id"}) == id && name && !name->empty()) return *name;
  }
  return *id;
}

std::string volume_text(const JsonNode& now) {
  if (flag_at(now, {"render", "available"}) == false) return "cannot be read";
  const std::string volume = percent_text(number_at(now, {"render", "volume"}));
  return volume + (flag_at(now, {"render", "muted"}) == true ? ", muted" : "");
}

// Whether a band changes the sound. Peaking and shelving bands (types 0 to 2) do nothing at a gain of 0.
bool is_in_use(const JsonNode& band) {
  const auto type = number_at(band, {"type"});
  const auto gain = number_at(band, {"gain_db"});
  return type > 2.0 || (gain && *gain != 0);
}

std::string equalizer_text(const JsonNode& equalizer) {
  std::string on = switch_text(inverted(flag_at(equalizer, {"bypass"})));
  const JsonNode* const bands = find_node(equalizer, {"bands"});
  if (bands == nullptr || bands->kind != JsonNode::Kind::list) return on;
  std::size_t count = 0;
  for (const JsonNode& band : bands->nodes) count += is_in_use(band) ? 1 : 0;
  return on + ", " + std::to_string(count) + " of " + std::to_string(bands->nodes.size()) + " bands in use";
}

std::string limiter_text(const JsonNode& now) {
  const std::string on = switch_text(flag_at(now, {"footstep", "limiter_enabled"}));
  return on + ", ceiling " + decibels_text(number_at(now, {"footstep", "limiter_ceiling_db"}));
}

std::string account_text(const JsonNode& now) {
  const auto signed_in = flag_at(now, {"session", "signed_in"});
  if (!signed_in) return "?";
  return *signed_in ? "signed in" : "not signed in";
}

}  // namespace

std::vector<SettingLine> list_settings(const StatusDocuments& documents) {
  const JsonNode& now = documents.now;
  return {
      {"device", device_text(documents)},
      {"volume", volume_text(now)},
      {"enhancement", switch_text(inverted(flag_at(now, {"footstep", "bypass"})))},
      {"strength", percent_text(number_at(now, {"footstep", "enhance_strength"}))},
      {"bypass all", switch_text(flag_at(now, {"footstep", "bypass_all"}))},
      {"equalizer", equalizer_text(documents.equalizer)},
      {"output trim", decibels_text(number_at(now, {"footstep", "output_trim_db"}))},
      {"limiter", limiter_text(now)},
      {"account", account_text(now)},
  };
}

}  // namespace velmora
