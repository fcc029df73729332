// Which machine this is, as the account service knows it.
#pragma once

#include <string>

namespace velmora {

// 64 lower-case hexadecimal digits: the same for as long as the system is not installed anew, and, copies of
// one image apart, on no two machines alike. They are SHA-256 of a fixed label and the system's own
// identifier of the machine, so that this one never leaves it; where it cannot be read, of the label and the
// machine's name. Asked for once and kept.
[[nodiscard]] const std::string& current_machine_id();

// The same of a given identifier, empty where it cannot be read, and a given name. Pure.
[[nodiscard]] std::string machine_id_of(const std::string& identifier, const std::string& name);

}  // namespace velmora
