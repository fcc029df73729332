// Which port a new service gets.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "command/exit_codes.h"

namespace velmora {

inline constexpr std::uint16_t first_port = 17831;
inline constexpr std::uint16_t last_port = 17850;
// How long an unknown program at a port may be silent before it counts as no Velmora service. A Velmora
// service that a client holds is as silent: it is skipped like another program, and a second service starts
// on the next port. One that this user's `start` runs is not affected; its run file is held.
inline constexpr std::int64_t recognition_ms = 1000;

struct PortChoice {
  Outcome outcome;
  std::uint16_t port = 0;  // 0: the service takes the one that it is given
};

// Chooses the port. `wanted` is the value of --port, if there is one: a port that is in use is then refused.
// Without it, ports in use by other programs are skipped; one on which a Velmora service answers is refused,
// because two services would write to the same effect. A value that is no port is left to the service.
[[nodiscard]] PortChoice choose_port(const std::optional<std::string>& wanted);

}  // namespace velmora
