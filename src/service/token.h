// The session token of the API.
#pragma once

#include <string>

namespace velmora {

// Returns 24 random bytes as 48 lower-case hexadecimal digits. Empty if the system provides none.
[[nodiscard]] std::string generate_session_token();

}  // namespace velmora
