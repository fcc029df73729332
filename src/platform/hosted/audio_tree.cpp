#include "platform/hosted/audio_tree.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

#include "base/number.h"
#include "base/text.h"
#include "platform/registry.h"

namespace velmora::hosted {
namespace {

constexpr std::u16string_view devices_path =
    u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\";
constexpr std::u16string_view own_path = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Audio";
constexpr std::uint32_t device_state_active = 1;  // mmdeviceapi.h

struct FlowWords {
  std::u16string_view key;
  std::u16string_view id_prefix;
  std::u16string_view default_value;
};
constexpr std::array<FlowWords, 2> words_of_flows = {{
    {u"Render", u"{0.0.0.00000000}.", u"DefaultRender"},
    {u"Capture", u"{0.0.1.00000000}.", u"DefaultCapture"},
}};

const FlowWords& words_of(EndpointFlow flow) { return words_of_flows.at(static_cast<std::size_t>(flow)); }

std::u16string joined(std::u16string_view path, std::u16string_view name) {
  return std::u16string(path).append(u"\\").append(name);
}

// Reads text like strtof in the C locale. Returns `otherwise` if it is missing or is not a number.
float float_of(const TreeKey* key, std::u16string_view name, float otherwise) {
  const auto text = find_text(key, name);
  if (!text) return otherwise;
  const std::string ascii = ascii_from_wide(*text);
  const std::size_t start = std::min(ascii.find_first_not_of(" \t\n\v\f\r"), ascii.size());
  return read_float(std::string_view(ascii).substr(start)).value_or(otherwise);
}

const TreeKey* own_key_of(const RegistryTree& registry, std::u16string_view id) {
  return find_key(registry, joined(own_path, id));
}

// Derives the flow from the prefix of the id.
std::optional<EndpointFlow> flow_of(std::u16string_view id) {
  for (const EndpointFlow flow : {EndpointFlow::render, EndpointFlow::capture}) {
    if (id.starts_with(words_of(flow).id_prefix)) return flow;
  }
  return std::nullopt;
}

bool is_active(const TreeKey& device) { return find_number(&device, u"DeviceState") == device_state_active; }

}  // namespace

std::vector<TreeEndpoint> endpoints_of(const RegistryTree& registry, EndpointFlow flow) {
  std::vector<TreeEndpoint> endpoints;
  const FlowWords& words = words_of(flow);
  const TreeKey* devices = find_key(registry, std::u16string(devices_path).append(words.key));
  if (devices == nullptr) return endpoints;
  for (const TreeKey& device : devices->keys) {
    endpoints.push_back({std::u16string(words.id_prefix).append(device.name), is_active(device)});
  }
  return endpoints;
}

std::optional<TreeEndpoint> find_endpoint(const RegistryTree& registry, std::u16string_view id) {
  const auto flow = flow_of(id);
  if (!flow) return std::nullopt;
  const FlowWords& words = words_of(*flow);
  const TreeKey* devices = find_key(registry, std::u16string(devices_path).append(words.key));
  const std::u16string_view name = id.substr(words.id_prefix.size());
  const TreeKey* device = devices == nullptr ? nullptr : find_key(*devices, name);
  // A key is found in any case, an endpoint is not. For an empty name or a path the found key has another
  // name.
  if (device == nullptr || device->name != name) return std::nullopt;
  return TreeEndpoint{std::u16string(id), is_active(*device)};
}

std::u16string default_endpoint_of(const RegistryTree& registry, EndpointFlow flow) {
  const auto named = find_text(find_key(registry, own_path), words_of(flow).default_value);
  std::u16string first;
  for (const TreeEndpoint& endpoint : endpoints_of(registry, flow)) {
    if (!endpoint.active) continue;
    if (endpoint.id == named) return endpoint.id;
    if (first.empty()) first = endpoint.id;
  }
  return first;
}

std::optional<std::u16string> endpoint_name_of(const RegistryTree& registry, std::u16string_view id) {
  const auto flow = flow_of(id);
  if (!flow) return std::nullopt;
  const FlowWords& words = words_of(*flow);
  const std::u16string device =
      joined(std::u16string(devices_path).append(words.key), id.substr(words.id_prefix.size()));
  const TreeKey* properties = find_key(registry, joined(device, u"Properties"));
  if (properties == nullptr) return std::nullopt;
  constexpr std::u16string_view friendly_name = u"{a45c254e-df1c-4efd-8020-67d146a850e0},14";
  if (find_value(*properties, friendly_name) != nullptr) return find_text(properties, friendly_name);
  auto description = find_text(properties, u"{a45c254e-df1c-4efd-8020-67d146a850e0},2");
  const auto interface_name = find_text(properties, u"{b3f8fa53-0004-438e-9003-51a46e139bfc},6");
  if (!description || !interface_name) return description;
  return *description + u" (" + *interface_name + u")";
}

float volume_of(const RegistryTree& registry, std::u16string_view id) {
  const float level = float_of(own_key_of(registry, id), u"Volume", 1);
  return level >= 0 && level <= 1 ? level : 1;
}

bool muted_of(const RegistryTree& registry, std::u16string_view id) {
  return find_number(own_key_of(registry, id), u"Muted").value_or(0) != 0;
}

float peak_of(const RegistryTree& registry, std::u16string_view id) {
  return float_of(own_key_of(registry, id), u"Peak", 0);
}

float peak_at(const RegistryTree& registry, std::u16string_view id, std::int64_t now_ns) {
  const float peak = peak_of(registry, id);
  const float swing = float_of(own_key_of(registry, id), u"PeakSwing", 0);
  if (swing == 0) return peak;
  // A triangle: 0 to 1 and back in 1.5 s.
  constexpr std::int64_t period_ns = 1'500'000'000;
  const float place = static_cast<float>(now_ns % period_ns) / static_cast<float>(period_ns);
  const float height = 1 - std::fabs(2 * place - 1);
  return peak + swing * (2 * height - 1);
}

void put_volume(RegistryTree& registry, std::u16string_view id, float level) {
  std::array<char, 32> digits{};
  constexpr int exact = std::numeric_limits<float>::max_digits10;
  const char* const end =
      std::to_chars(digits.begin(), digits.end(), level, std::chars_format::general, exact).ptr;
  std::u16string text = wide_from_ascii({digits.data(), static_cast<std::size_t>(end - digits.data())});
  text += u'\0';
  put_value(make_key(registry, joined(own_path, id)), u"Volume", reg_sz,
            {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t)});
}

void put_muted(RegistryTree& registry, std::u16string_view id, bool muted) {
  const std::uint32_t number = muted ? 1 : 0;
  put_value(make_key(registry, joined(own_path, id)), u"Muted", reg_dword,
            {reinterpret_cast<const char*>(&number), sizeof number});
}

std::vector<AudioSession> sessions_of(const RegistryTree& registry, std::u16string_view id) {
  std::vector<AudioSession> sessions;
  const TreeKey* own = own_key_of(registry, id);
  const TreeKey* kept = own == nullptr ? nullptr : find_key(*own, u"Sessions");
  if (kept == nullptr) return sessions;
  for (const TreeKey& session : kept->keys) {
    const auto state = static_cast<std::int32_t>(find_number(&session, u"State").value_or(0));
    sessions.push_back({state, find_number(&session, u"ProcessId").value_or(0)});
  }
  return sessions;
}

}  // namespace velmora::hosted
