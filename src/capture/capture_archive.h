// The four capture files as one ZIP archive, produced piece by piece: it is never whole on disk or in memory.
// Each file is read twice, once for its checksum and once to be sent. The second pass verifies nothing. A
// rewritten file is sent with the old checksum, a longer file is cut off, and only a shorter one is detected.
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

// One file of the archive, for the duration of one download.
struct CaptureMember {
  std::string_view name;
  std::string path;        // UTF-8
  std::uint32_t size = 0;  // bytes when inspected; exactly this many are sent
  std::uint32_t crc32 = 0;
  std::uint32_t local_header_offset = 0;  // the low 32 bits if the archive exceeds 4 GiB
};

// Most bytes read and sent at once.
inline constexpr std::size_t capture_block_bytes = 65536;

struct CaptureBlock {
  std::array<char, capture_block_bytes> bytes;
};

// The state of one download. open_capture_archive fills it; next_archive_piece consumes it.
struct CaptureArchive {
  std::vector<CaptureMember> members;
  std::unique_ptr<CaptureBlock> block;  // the buffer of all reads
  std::uint64_t directory_offset = 0;   // of the central directory; its record stores the low 32 bits
  std::uint32_t directory_bytes = 0;
  DosTime moment;

  // Progress of next_archive_piece.
  std::size_t member = 0;
  bool header_sent = false;
  std::uint32_t remaining = 0;  // bytes of the present member still to be sent
  InputFile file;
  std::string text;  // the headers returned last
};

// Returns the current local time. Both words are 0 if the system cannot provide it.
[[nodiscard]] DosTime dos_time_now();

// Computes the offset of each member, and offset and length of the central directory. Uses only the names and
// sizes of the members. Pure.
void lay_out(CaptureArchive& archive);

// Inspects the four files of a directory before opening any. Then reads them for their checksums and lays out
// the archive. Returns empty text on success, otherwise the message of the first failure.
[[nodiscard]] std::string open_capture_archive(std::string_view directory, CaptureArchive& archive);

// Returns the size of the whole archive in bytes.
[[nodiscard]] std::uint64_t archive_bytes(const CaptureArchive& archive);

struct ArchivePiece {
  std::string_view bytes;  // valid until the next call; empty at the end and on failure
  std::string error;       // empty: no failure
};

// Returns the next bytes: the header of a member, a block of its data, or all records after the last member.
[[nodiscard]] ArchivePiece next_archive_piece(CaptureArchive& archive);

}  // namespace velmora
