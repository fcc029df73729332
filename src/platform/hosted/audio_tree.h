// The audio endpoints of a machine, read out of its registry. Pure.
//
// Windows keeps endpoints below `MMDevices\Audio\Render` and `...\Capture`: a key for each, with its state
// and its properties. What Windows keeps elsewhere stands below the hosted machine's own key
// `SOFTWARE\VelmoraStandIn\Audio`: the defaults (`DefaultRender`, `DefaultCapture`: ids), and below a key
// named by the id of an endpoint its volume, mute, peak and sessions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/audio_endpoints.h"
#include "platform/hosted/registry_tree.h"

namespace velmora::hosted {

struct TreeEndpoint {
  std::u16string id;    // "{0.0.0.00000000}." (render) or "{0.0.1.00000000}." (capture) and the key's name
  bool active = false;  // DeviceState is 1
};

// In the order of the keys.
[[nodiscard]] std::vector<TreeEndpoint> endpoints_of(const RegistryTree& registry, EndpointFlow flow);

// The endpoint with this id, exact in case.
[[nodiscard]] std::optional<TreeEndpoint> find_endpoint(const RegistryTree& registry, std::u16string_view id);

// The active endpoint that is named as the default, else the first active one; empty when there is none.
[[nodiscard]] std::u16string default_endpoint_of(const RegistryTree& registry, EndpointFlow flow);

// The friendly name ({a45c254e-df1c-4efd-8020-67d146a850e0},14). Exports often lack it, since Windows makes
// it of the description (the same,2) and the interface's name ({b3f8fa53-0004-438e-9003-51a46e139bfc},6), as
// "2 (6)". No value when there is no description either, or when the property is no text.
[[nodiscard]] std::optional<std::u16string> endpoint_name_of(const RegistryTree& registry,
                                                             std::u16string_view id);

// `Volume` (REG_SZ, a number; 1 where it is missing or none), `Muted` (REG_DWORD) and `Peak` (REG_SZ, any
// number that strtof reads; 0 where it is missing) of an endpoint.
[[nodiscard]] float volume_of(const RegistryTree& registry, std::u16string_view id);
[[nodiscard]] bool muted_of(const RegistryTree& registry, std::u16string_view id);
[[nodiscard]] float peak_of(const RegistryTree& registry, std::u16string_view id);
// What a meter shows at a moment of the steady clock: the peak, and where `PeakSwing` (REG_SZ, a number) is
// given, up to so much above and below it.
[[nodiscard]] float peak_at(const RegistryTree& registry, std::u16string_view id, std::int64_t now_ns);
void put_volume(RegistryTree& registry, std::u16string_view id, float level);
void put_muted(RegistryTree& registry, std::u16string_view id, bool muted);

// The sessions of an endpoint, in the order of the keys below its key `Sessions`: `State` and `ProcessId`
// (REG_DWORD), 0 where they are missing.
[[nodiscard]] std::vector<AudioSession> sessions_of(const RegistryTree& registry, std::u16string_view id);

}  // namespace velmora::hosted
