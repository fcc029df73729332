// CRC-32 as used by ZIP (APPNOTE.TXT 4.4.7): reflected, polynomial 0xEDB88320.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmora {

// Returns the CRC register after `length` more bytes. The caller starts with 0xFFFFFFFF and complements the
// final register to get the checksum. The first call builds a static table of 256 entries.
[[nodiscard]] std::uint32_t crc32_update(std::uint32_t crc, const char* data, std::size_t length);

}  // namespace velmora
