// An algorithm library that changes the locale of the program that loads it, to one with a decimal comma.
#include <clocale>
#include <cstdint>
#include <cstring>

extern "C" void fse_get_version(std::uint32_t* major, std::uint32_t* minor, std::uint32_t* patch);

namespace {

// On Linux the test's own locale, which LOCPATH leads to; on Windows the system's.
const bool changed =
    std::setlocale(LC_ALL, "velmora_comma") != nullptr || std::setlocale(LC_ALL, "German") != nullptr;

}  // namespace

// 4.5.6 where the locale has been changed, so that a test sees it, else 0.0.0.
extern "C" void fse_get_version(std::uint32_t* major, std::uint32_t* minor, std::uint32_t* patch) {
  const bool comma = changed && std::strcmp(std::localeconv()->decimal_point, ",") == 0;
  *major = comma ? 4 : 0;
  *minor = comma ? 5 : 0;
  *patch = comma ? 6 : 0;
}
