#include <cstdlib>

#include "unit/support/comma_locale.h"

namespace velmora {

// The build has made the locale, so that the test needs none of the system's.
bool set_comma_locale() {
  return setenv("LOCPATH", VELMORA_LOCALES, 1) == 0 && std::setlocale(LC_ALL, "velmora_comma") != nullptr;
}

}  // namespace velmora
