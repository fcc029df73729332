// The audio endpoints of a machine, read from its registry. Pure.
//
// Windows keeps endpoints below `MMDevices\Audio\Render` and `...\Capture`: one key each, with its state and
// properties. Everything else is below the hosted machine's own key `SOFTWARE\VelmoraStandIn\Audio`. There
// the values `DefaultRender` and `DefaultCapture` hold ids. A subkey named by an endpoint's id holds its
// volume, mute, peak and sessions.
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
  std::u16string id;    // "{0.0.0.00000000}." (render) or "{0.0.1.00000000}." (capture) plus the key's name
  bool active = false;  // DeviceState is 1
};

// Lists the endpoints of a flow, in the order of their keys.
[[nodiscard]] std::vector<TreeEndpoint> endpoints_of(const RegistryTree& registry, EndpointFlow flow);

// Finds an endpoint by id, case-sensitive.
[[nodiscard]] std::optional<TreeEndpoint> find_endpoint(const RegistryTree& registry, std::u16string_view id);

// Returns the id of the default endpoint if active, else of the first active endpoint, else an empty text.
[[nodiscard]] std::u16string default_endpoint_of(const RegistryTree& registry, EndpointFlow flow);

// Reads the friendly name ({a45c254e-df1c-4efd-8020-67d146a850e0},14). Exports often lack it: Windows
// composes it as "DESCRIPTION (INTERFACE)", from the description (same GUID, 2) and the interface name
// ({b3f8fa53-0004-438e-9003-51a46e139bfc},6). Without an interface name it is the description. No value if
// the friendly name is not text, or if there is neither a friendly name nor a description.
[[nodiscard]] std::optional<std::u16string> endpoint_name_of(const RegistryTree& registry,
                                                             std::u16string_view id);

// Values of an endpoint: `Volume` (REG_SZ, 0 to 1; default 1), `Muted` (REG_DWORD; default 0) and `Peak`
// (REG_SZ, any number that strtof reads; default 0).
[[nodiscard]] float volume_of(const RegistryTree& registry, std::u16string_view id);
[[nodiscard]] bool muted_of(const RegistryTree& registry, std::u16string_view id);
[[nodiscard]] float peak_of(const RegistryTree& registry, std::u16string_view id);
// The meter's value at a time of the steady clock. `PeakSwing` (REG_SZ, a number; default 0) makes it swing
// around the peak by that much.
[[nodiscard]] float peak_at(const RegistryTree& registry, std::u16string_view id, std::int64_t now_ns);
void put_volume(RegistryTree& registry, std::u16string_view id, float level);
void put_muted(RegistryTree& registry, std::u16string_view id, bool muted);

// Lists the sessions of an endpoint, in the order of the keys below its key `Sessions`. `State` and
// `ProcessId` (REG_DWORD) default to 0.
[[nodiscard]] std::vector<AudioSession> sessions_of(const RegistryTree& registry, std::u16string_view id);

}  // namespace velmora::hosted
