#include <cstdlib>

#include "unit/support/comma_locale.h"

namespace velmora {

// The build creates the locale, so the test needs no installed one.
bool set_comma_locale() {
  return setenv("LOCPATH", VELMORA_LOCALES, 1) == 0 && std::setlocale(LC_ALL, "velmora_comma") != nullptr;
}

}  // namespace velmora
