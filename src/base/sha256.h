// SHA-256 (FIPS 180-4). Pure.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace velmora {

inline constexpr std::size_t sha256_bytes = 32;

// Returns the digest, first byte first.
[[nodiscard]] std::array<unsigned char, sha256_bytes> sha256(std::string_view bytes);

}  // namespace velmora
