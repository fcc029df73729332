#include "capture/capture_archive.h"

#include <algorithm>

#include "base/crc32.h"
#include "platform/clock.h"

namespace velmora {
namespace {

constexpr std::uint64_t largest_member_bytes = 0xFFFFFFFF;

std::string about(std::string_view what, const CaptureMember& member) {
  return std::string(what).append(member.name);
}

std::string inspect_member(CaptureMember& member) {
  if (query_file_kind(member.path) != FileKind::regular) return "no exported capture found -- export first";
  std::uint64_t size = 0;
  if (query_file_size(member.path, size) != 0 || size == 0) {
    return about("capture file is empty or unreadable: ", member);
  }
  if (size > largest_member_bytes) return about("capture file is too large for a zip member: ", member);
  member.size = static_cast<std::uint32_t>(size);
  return {};
}

std::string open_member(const CaptureMember& member, InputFile& file) {
  return open_for_reading(member.path, file) == 0 ? std::string() : about("cannot read ", member);
}

std::string checksum_member(CaptureMember& member, CaptureBlock& block) {
  InputFile file;
  if (std::string error = open_member(member, file); !error.empty()) return error;
  std::uint32_t crc = 0xFFFFFFFF;
  std::uint64_t bytes = 0;
  // Stop once the file is longer than when inspected: it has changed, and it may never end.
  while (bytes <= member.size) {
    const std::size_t count = read_file_piece(file, block.bytes.data(), capture_block_bytes).count;
    if (count == 0) break;
    crc = crc32_update(crc, block.bytes.data(), count);
    bytes += count;
  }
  if (bytes != member.size) return about("capture file changed while it was being read: ", member);
  member.crc32 = ~crc;
  return {};
}

ZipMember header_of(const CaptureMember& member) {
  return {member.name, member.size, member.crc32, member.local_header_offset};
}

ArchivePiece next_header(CaptureArchive& archive, const CaptureMember& member) {
  archive.text.clear();
  put_local_header(archive.text, header_of(member), archive.moment);
  archive.header_sent = true;
  archive.remaining = member.size;
  return {archive.text, {}};
}

ArchivePiece next_block(CaptureArchive& archive, const CaptureMember& member) {
  if (!archive.file.is_open()) {
    if (std::string error = open_member(member, archive.file); !error.empty()) return {{}, std::move(error)};
  }
  const std::size_t wanted = std::min<std::size_t>(archive.remaining, capture_block_bytes);
  const std::size_t count = read_file_piece(archive.file, archive.block->bytes.data(), wanted).count;
  if (count == 0) return {{}, about("capture file shrank while it was being sent: ", member)};
  archive.remaining -= static_cast<std::uint32_t>(count);
  if (archive.remaining == 0) {
    archive.file.close();
    archive.header_sent = false;
    ++archive.member;
  }
  return {{archive.block->bytes.data(), count}, {}};
}

ArchivePiece next_directory(CaptureArchive& archive) {
  archive.text.clear();
  for (const CaptureMember& member : archive.members) {
    put_central_entry(archive.text, header_of(member), archive.moment);
  }
  put_end_record(archive.text, static_cast<std::uint16_t>(archive.members.size()), archive.directory_bytes,
                 static_cast<std::uint32_t>(archive.directory_offset));
  ++archive.member;
  return {archive.text, {}};
}

}  // namespace

DosTime dos_time_now() {
  std::tm local_time{};
  return read_local_time(local_time) ? dos_time_of(local_time) : DosTime{};
}

void lay_out(CaptureArchive& archive) {
  archive.directory_offset = 0;
  archive.directory_bytes = 0;
  for (CaptureMember& member : archive.members) {
    member.local_header_offset = static_cast<std::uint32_t>(archive.directory_offset);
    archive.directory_offset += local_header_bytes + member.name.size() + member.size;
    archive.directory_bytes += static_cast<std::uint32_t>(central_entry_bytes + member.name.size());
  }
}

std::string open_capture_archive(std::string_view directory, CaptureArchive& archive) {
  archive = {};
  for (const std::string_view name : capture_file_names) {
    CaptureMember member{name, join_path(directory, name)};
    if (std::string error = inspect_member(member); !error.empty()) return error;
    archive.members.push_back(std::move(member));
  }
  archive.block = std::make_unique_for_overwrite<CaptureBlock>();
  for (CaptureMember& member : archive.members) {
    if (std::string error = checksum_member(member, *archive.block); !error.empty()) return error;
  }
  lay_out(archive);
  archive.moment = dos_time_now();
  return {};
}

std::uint64_t archive_bytes(const CaptureArchive& archive) {
  return archive.directory_offset + archive.directory_bytes + end_record_bytes;
}

ArchivePiece next_archive_piece(CaptureArchive& archive) {
  if (archive.member < archive.members.size()) {
    const CaptureMember& member = archive.members[archive.member];
    return archive.header_sent ? next_block(archive, member) : next_header(archive, member);
  }
  return archive.member == archive.members.size() ? next_directory(archive) : ArchivePiece{};
}

}  // namespace velmora
