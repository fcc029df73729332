// The help texts. Pure.
#pragma once

#include <string_view>

#include "command/arguments.h"

namespace velmora {

// Returns the help about a command, or the overview for CommandName::none.
[[nodiscard]] std::string_view help_text(CommandName command);

}  // namespace velmora
