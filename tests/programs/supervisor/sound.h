// Where sound plays on the machine, as its registry says. Pure, but for the binding's own look at a chain.
//
// The value `Plays` (REG_SZ) of the key `SOFTWARE\VelmoraStandIn\Audio` names the render endpoint that plays:
// `none`, `default`, an id, or the beginning of a name as it is shown, without regard to case. Without the
// value the machine's peaks and sessions are left as they are.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/hosted/registry_tree.h"

namespace velmora::supervisor {

// `text` is UTF-8.
void choose_sound(hosted::RegistryTree& registry, std::string_view text);

// No value where the machine does not say.
[[nodiscard]] std::optional<std::u16string> chosen_sound(const hosted::RegistryTree& registry);

// The id of the active render endpoint that the choice names; empty when it names none.
[[nodiscard]] std::u16string find_playing_endpoint(const hosted::RegistryTree& registry,
                                                   std::u16string_view choice);

// Gives the endpoint a swinging peak and one active session of the process, and every other render endpoint
// a peak of 0 and no active session. An empty id: nothing plays.
void put_sound(hosted::RegistryTree& registry, std::u16string_view playing_id, std::uint32_t process_id);

}  // namespace velmora::supervisor
