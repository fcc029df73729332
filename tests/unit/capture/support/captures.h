// Captures on the memory machine, the expected archive of them, written independently of the code under test,
// and a reader that starts from the end record as unzip programs do.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "memory/system.h"

namespace velmora {

inline constexpr std::array<std::string_view, 4> names_of_captures = {
    "capture-1-host-in.wav", "capture-2-algorithm-in.wav", "capture-3-algorithm-out.wav",
    "capture-4-host-out.wav"};

using Captures = std::array<std::string, 4>;

// Pseudo-random bytes.
inline std::string noise(std::size_t size, std::uint32_t seed) {
  std::string bytes;
  bytes.reserve(size);
  std::uint32_t state = seed * 2654435761u + 1;
  while (bytes.size() < size) {
    state = state * 1664525u + 1013904223u;
    bytes.push_back(static_cast<char>(state >> 24));
  }
  return bytes;
}

inline Captures noise_of_sizes(const std::array<std::size_t, 4>& sizes) {
  Captures captures;
  for (std::uint32_t index = 0; index < 4; ++index) captures[index] = noise(sizes[index], index + 1);
  return captures;
}

inline std::string capture_path(std::size_t index) {
  return "captures/" + std::string(names_of_captures[index]);
}

inline memory::File& capture_file(std::size_t index) { return memory::system().files[capture_path(index)]; }

// Create the four files in the directory `captures`.
inline void put_captures(const Captures& captures) {
  for (std::size_t index = 0; index < 4; ++index) {
    capture_file(index) = {};
    capture_file(index).bytes = captures[index];
  }
}

// The CRC register after these bytes, computed bit by bit.
inline std::uint32_t plain_register(std::uint32_t crc, std::string_view bytes) {
  for (const char byte : bytes) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
  }
  return crc;
}

inline std::uint32_t plain_crc32(std::string_view bytes) { return ~plain_register(0xFFFFFFFFu, bytes); }

// One field of a record: offset, width in bytes, and value in little-endian order.
struct RecordField {
  std::size_t offset;
  std::size_t width;
  std::uint64_t value;
};

inline std::string record_of(std::size_t size, const std::vector<RecordField>& fields) {
  std::string record(size, '?');
  for (const RecordField& field : fields) {
    for (std::size_t index = 0; index < field.width; ++index) {
      record.at(field.offset + index) = static_cast<char>((field.value >> (8 * index)) & 0xFF);
    }
  }
  return record;
}

inline std::string expected_local_header(std::string_view name, std::uint64_t size, std::uint32_t crc,
                                         std::uint16_t time, std::uint16_t date) {
  return record_of(30, {{0, 4, 0x04034B50},
                        {4, 2, 20},
                        {6, 2, 0},
                        {8, 2, 0},
                        {10, 2, time},
                        {12, 2, date},
                        {14, 4, crc},
                        {18, 4, size},
                        {22, 4, size},
                        {26, 2, name.size()},
                        {28, 2, 0}}) +
         std::string(name);
}

inline std::string expected_central_entry(std::string_view name, std::uint64_t size, std::uint32_t crc,
                                          std::uint16_t time, std::uint16_t date, std::uint64_t offset) {
  return record_of(46, {{0, 4, 0x02014B50},
                        {4, 2, 20},
                        {6, 2, 20},
                        {8, 2, 0},
                        {10, 2, 0},
                        {12, 2, time},
                        {14, 2, date},
                        {16, 4, crc},
                        {20, 4, size},
                        {24, 4, size},
                        {28, 2, name.size()},
                        {30, 2, 0},
                        {32, 2, 0},
                        {34, 2, 0},
                        {36, 2, 0},
                        {38, 4, 0},
                        {42, 4, offset}}) +
         std::string(name);
}

inline std::string expected_end_record(std::uint16_t members, std::uint64_t directory_bytes,
                                       std::uint64_t directory_offset) {
  return record_of(22, {{0, 4, 0x06054B50},
                        {4, 2, 0},
                        {6, 2, 0},
                        {8, 2, members},
                        {10, 2, members},
                        {12, 4, directory_bytes},
                        {16, 4, directory_offset},
                        {20, 2, 0}});
}

// The whole archive of four files.
inline std::string expected_archive(const Captures& captures, std::uint16_t time, std::uint16_t date) {
  std::string archive;
  std::string directory;
  for (std::size_t index = 0; index < 4; ++index) {
    const std::string_view name = names_of_captures[index];
    const std::uint32_t crc = plain_crc32(captures[index]);
    directory += expected_central_entry(name, captures[index].size(), crc, time, date, archive.size());
    archive += expected_local_header(name, captures[index].size(), crc, time, date) + captures[index];
  }
  return archive + directory + expected_end_record(4, directory.size(), archive.size());
}

// The result of read_archive.
struct ReadMember {
  std::string name;
  std::string bytes;
  std::size_t header_offset;
  std::uint16_t time;
  std::uint16_t date;
};
struct ReadArchive {
  std::vector<ReadMember> members;
  std::size_t directory_offset = 0;
  std::string trouble;  // empty if the archive is valid
};

inline std::uint64_t number_at(std::string_view bytes, std::size_t offset, std::size_t width) {
  std::uint64_t number = 0;
  for (std::size_t index = width; index-- > 0;) {
    number = (number << 8) | static_cast<unsigned char>(bytes.at(offset + index));
  }
  return number;
}

inline ReadArchive read_archive(std::string_view bytes) {
  ReadArchive archive;
  const auto fail = [&](std::string_view trouble) {
    archive.trouble = trouble;
    return archive;
  };
  if (bytes.size() < 22) return fail("shorter than an end record");
  const std::string_view end = bytes.substr(bytes.size() - 22);
  if (number_at(end, 0, 4) != 0x06054B50) return fail("no end record");
  archive.directory_offset = number_at(end, 16, 4);
  if (archive.directory_offset + number_at(end, 12, 4) + 22 != bytes.size()) return fail("directory's place");
  std::size_t entry = archive.directory_offset;
  std::size_t expected_offset = 0;
  for (std::uint64_t count = number_at(end, 10, 2); count > 0; --count) {
    if (entry + 46 > bytes.size() - 22 || number_at(bytes, entry, 4) != 0x02014B50) return fail("entry");
    const std::size_t name_length = number_at(bytes, entry + 28, 2);
    const std::string_view name = bytes.substr(entry + 46, name_length);
    const std::size_t size = number_at(bytes, entry + 24, 4);
    const std::size_t local = number_at(bytes, entry + 42, 4);
    if (local != expected_offset) return fail("members do not follow one another");
    if (local + 30 + name_length + size > archive.directory_offset) return fail("a member is cut");
    if (number_at(bytes, local, 4) != 0x04034B50) return fail("no local header");
    // Both headers agree from the version needed to the length of the extra field.
    if (bytes.substr(local + 4, 26) != bytes.substr(entry + 6, 26)) return fail("headers differ");
    if (bytes.substr(local + 30, name_length) != name) return fail("names differ");
    const std::string_view data = bytes.substr(local + 30 + name_length, size);
    if (plain_crc32(data) != number_at(bytes, entry + 16, 4)) return fail("checksum");
    archive.members.push_back({std::string(name), std::string(data), local,
                               static_cast<std::uint16_t>(number_at(bytes, entry + 12, 2)),
                               static_cast<std::uint16_t>(number_at(bytes, entry + 14, 2))});
    expected_offset = local + 30 + name_length + size;
    entry += 46 + name_length;
  }
  if (expected_offset != archive.directory_offset) return fail("bytes in front of the directory");
  return entry == bytes.size() - 22 ? archive : fail("bytes behind the directory");
}

inline std::tm local_moment(int year, int month, int day, int hour, int minute, int second) {
  std::tm moment{};
  moment.tm_year = year - 1900;
  moment.tm_mon = month - 1;
  moment.tm_mday = day;
  moment.tm_hour = hour;
  moment.tm_min = minute;
  moment.tm_sec = second;
  return moment;
}

// 14 March 2026, 09:15:02, and its two words.
inline std::tm usual_moment() { return local_moment(2026, 3, 14, 9, 15, 2); }
inline constexpr std::uint16_t usual_time = 0x49E1;
inline constexpr std::uint16_t usual_date = 0x5C6E;

}  // namespace velmora
