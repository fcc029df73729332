// An algorithm library that reports its version.
#include <cstdint>

extern "C" void fse_get_version(std::uint32_t* major, std::uint32_t* minor, std::uint32_t* patch);

// 3.2.1, three numbers that differ, so that a swapped pair shows.
extern "C" void fse_get_version(std::uint32_t* major, std::uint32_t* minor, std::uint32_t* patch) {
  *major = 3;
  *minor = 2;
  *patch = 1;
}
