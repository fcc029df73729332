// The id by which the account service knows this machine.
#pragma once

#include <string>

namespace velmora {

// Returns 64 lower-case hexadecimal digits. They change only when the system is reinstalled, and differ
// between machines, except for copies of one image. They are the SHA-256 of a fixed label and the system's
// machine identifier, so that this identifier never leaves the machine. If it cannot be read, the machine's
// name replaces it. Computed once and cached.
[[nodiscard]] const std::string& current_machine_id();

// The same for a given identifier (empty: it cannot be read) and machine name. Pure.
[[nodiscard]] std::string machine_id_of(const std::string& identifier, const std::string& name);

}  // namespace velmora
