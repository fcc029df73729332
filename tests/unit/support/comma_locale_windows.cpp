#include "unit/support/comma_locale.h"

namespace velmora {

bool set_comma_locale() { return std::setlocale(LC_ALL, "German") != nullptr; }

}  // namespace velmora
