// CRC-32 as ZIP has it (APPNOTE.TXT 4.4.7): reflected, polynomial 0xEDB88320.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmora {

// The register behind `length` more bytes. It starts as 0xFFFFFFFF and the checksum is its complement; both
// are the caller's. The table of 256 entries is built at the first call and stays.
[[nodiscard]] std::uint32_t crc32_update(std::uint32_t crc, const char* data, std::size_t length);

}  // namespace velmora
