// The records of a ZIP archive with stored members (APPNOTE.TXT): no compression, no data descriptors, no
// extra fields, no comments, no ZIP64. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace velmora {

// Bytes before the name of a member (4.3.7, 4.3.12), and of the record at the end (4.3.16).
inline constexpr std::size_t local_header_bytes = 30;
inline constexpr std::size_t central_entry_bytes = 46;
inline constexpr std::size_t end_record_bytes = 22;

// A moment in MS-DOS format: seconds are halved, and years count from 1980 modulo 128.
struct DosTime {
  std::uint16_t time = 0;
  std::uint16_t date = 0;
};

// One member, as its headers describe it.
struct ZipMember {
  std::string_view name;  // ASCII; must outlive this object
  std::uint32_t size = 0;
  std::uint32_t crc32 = 0;
  std::uint32_t local_header_offset = 0;  // from the archive's first byte
};

// Append a number in little-endian order.
void put_u16_le(std::string& out, std::uint16_t value);
void put_u32_le(std::string& out, std::uint32_t value);

[[nodiscard]] DosTime dos_time_of(const std::tm& local_time);

// Each appends one record, with the name of its member.
void put_local_header(std::string& out, const ZipMember& member, DosTime moment);
void put_central_entry(std::string& out, const ZipMember& member, DosTime moment);
void put_end_record(std::string& out, std::uint16_t members, std::uint32_t directory_bytes,
                    std::uint32_t directory_offset);

}  // namespace velmora
