#include "capture/zip.h"

namespace velmora {
namespace {

constexpr std::uint32_t local_header_signature = 0x04034B50;
constexpr std::uint32_t central_entry_signature = 0x02014B50;
constexpr std::uint32_t end_record_signature = 0x06054B50;
constexpr std::uint16_t version = 20;  // 2.0
constexpr std::uint16_t stored = 0;

// The fields common to both headers of a member, from the version needed to the length of the extra field.
void put_member_fields(std::string& out, const ZipMember& member, DosTime moment) {
  put_u16_le(out, version);
  put_u16_le(out, 0);  // flags
  put_u16_le(out, stored);
  put_u16_le(out, moment.time);
  put_u16_le(out, moment.date);
  put_u32_le(out, member.crc32);
  put_u32_le(out, member.size);  // compressed
  put_u32_le(out, member.size);
  put_u16_le(out, static_cast<std::uint16_t>(member.name.size()));
  put_u16_le(out, 0);  // extra field
}

}  // namespace

void put_u16_le(std::string& out, std::uint16_t value) {
  out.push_back(static_cast<char>(value & 0xFF));
  out.push_back(static_cast<char>(value >> 8));
}

void put_u32_le(std::string& out, std::uint32_t value) {
  put_u16_le(out, static_cast<std::uint16_t>(value & 0xFFFF));
  put_u16_le(out, static_cast<std::uint16_t>(value >> 16));
}

DosTime dos_time_of(const std::tm& local_time) {
  const int year = (local_time.tm_year + 1900 - 1980) & 127;
  const int date = (year << 9) | ((local_time.tm_mon + 1) << 5) | local_time.tm_mday;
  const int time = (local_time.tm_hour << 11) | (local_time.tm_min << 5) | (local_time.tm_sec / 2);
  return {static_cast<std::uint16_t>(time), static_cast<std::uint16_t>(date)};
}

void put_local_header(std::string& out, const ZipMember& member, DosTime moment) {
  put_u32_le(out, local_header_signature);
  put_member_fields(out, member, moment);
  out += member.name;
}

void put_central_entry(std::string& out, const ZipMember& member, DosTime moment) {
  put_u32_le(out, central_entry_signature);
  put_u16_le(out, version);  // made by
  put_member_fields(out, member, moment);
  put_u16_le(out, 0);  // comment
  put_u16_le(out, 0);  // disk
  put_u16_le(out, 0);  // internal attributes
  put_u32_le(out, 0);  // external attributes
  put_u32_le(out, member.local_header_offset);
  out += member.name;
}

void put_end_record(std::string& out, std::uint16_t members, std::uint32_t directory_bytes,
                    std::uint32_t directory_offset) {
  put_u32_le(out, end_record_signature);
  put_u16_le(out, 0);  // this disk
  put_u16_le(out, 0);  // the directory's disk
  put_u16_le(out, members);
  put_u16_le(out, members);
  put_u32_le(out, directory_bytes);
  put_u32_le(out, directory_offset);
  put_u16_le(out, 0);  // comment
}

}  // namespace velmora
