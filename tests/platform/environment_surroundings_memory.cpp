#include "platform/environment_surroundings.h"

#include <ctime>

#include "memory/system.h"

namespace velmora::surroundings {

void set_environment(std::u16string_view name, std::u16string_view text) {
  auto& variables = memory::system().environment;
  variables.erase(std::u16string(name));
  if (!text.empty()) variables.emplace(name, text);
}

void set_unix_clock() { memory::system().unix_time_s = std::time(nullptr); }

}  // namespace velmora::surroundings
