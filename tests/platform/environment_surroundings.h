// The environment and the clock of the contract tests.
#pragma once

#include <string_view>

namespace velmora::surroundings {

// A variable of this process. An empty text removes it.
void set_environment(std::u16string_view name, std::u16string_view text);

// Sets the clock of a machine in memory to the present; a real system's is there already.
void set_unix_clock();

}  // namespace velmora::surroundings
