// The four capture files as one ZIP archive that is pulled piece by piece: it exists neither on disk nor in
// memory. Each file is read twice, once for its checksum and once to be sent. The second reading checks
// nothing again: a file that was rewritten meanwhile goes out with the first checksum, one that has grown is
// cut, and only one that has shrunk is noticed.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "capture/capture_directory.h"
#include "capture/zip.h"
#include "platform/files.h"

namespace velmora {

// One file of the set, for as long as one download takes.
struct CaptureMember {
  std::string_view name;
  std::string path;        // UTF-8
  std::uint32_t size = 0;  // bytes, as seen at the inspection; so many are sent
  std::uint32_t crc32 = 0;
  std::uint32_t local_header_offset = 0;  // the low 32 bits, should the archive pass 4 GiB
};

// The most that is read and sent at once.
inline constexpr std::size_t capture_block_bytes = 65536;

struct CaptureBlock {
  std::array<char, capture_block_bytes> bytes;
};

// An archive in the making. Made by open_capture_archive, emptied by next_archive_piece.
struct CaptureArchive {
  std::vector<CaptureMember> members;
  std::unique_ptr<CaptureBlock> block;  // used for everything that is read
  std::uint64_t directory_offset = 0;   // of the central directory, in 64 bits whatever its record can hold
  std::uint32_t directory_bytes = 0;
  DosTime moment;

  // Where the pulling stands.
  std::size_t member = 0;
  bool header_sent = false;
  std::uint32_t remaining = 0;  // bytes of the member that are still to come
  InputFile file;
  std::string text;  // the headers that were handed out last
};

// The words of the present local time; both 0 where the system cannot tell it.
[[nodiscard]] DosTime dos_time_now();

// Gives each member its offset and the central directory its place and length, from the members' names and
// sizes alone. Pure.
void lay_out(CaptureArchive& archive);

// Inspects the four files of a directory, all of them before the first is opened, then reads them for their
// checksums and lays the archive out. Empty on success, otherwise what is wrong; the first file in order that
// fails decides.
[[nodiscard]] std::string open_capture_archive(std::string_view directory, CaptureArchive& archive);

// Bytes of the whole archive.
[[nodiscard]] std::uint64_t archive_bytes(const CaptureArchive& archive);

struct ArchivePiece {
  std::string_view bytes;  // valid until the next call; empty at the archive's end and on failure
  std::string error;       // empty: no failure
};

// The next bytes: a member's header, a block of it, or everything behind the last member.
[[nodiscard]] ArchivePiece next_archive_piece(CaptureArchive& archive);

}  // namespace velmora
