// The session token of the API.
#pragma once

#include <string>

namespace velmora {

// 24 random bytes as 48 lower-case hexadecimal digits. Empty when the system gives none.
[[nodiscard]] std::string generate_session_token();

}  // namespace velmora
