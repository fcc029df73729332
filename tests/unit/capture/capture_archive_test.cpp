#include "capture/capture_archive.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <numeric>

#include "unit/capture/support/captures.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

constexpr std::size_t block_bytes = 65536;

const std::string not_found = "no exported capture found -- export first";
std::string empty_file(std::size_t index) {
  return "capture file is empty or unreadable: " + std::string(names_of_captures[index]);
}
std::string too_large(std::size_t index) {
  return "capture file is too large for a zip member: " + std::string(names_of_captures[index]);
}
std::string cannot_read(std::size_t index) { return "cannot read " + std::string(names_of_captures[index]); }
std::string changed(std::size_t index) {
  return "capture file changed while it was being read: " + std::string(names_of_captures[index]);
}
std::string shrank(std::size_t index) {
  return "capture file shrank while it was being sent: " + std::string(names_of_captures[index]);
}

std::size_t sum_of(const Captures& captures) {
  return std::accumulate(captures.begin(), captures.end(), std::size_t{0},
                         [](std::size_t sum, const std::string& file) { return sum + file.size(); });
}

// The rest of an archive and its final error.
struct Pulled {
  std::string bytes;
  std::string error;
  std::vector<std::size_t> sizes;
};

Pulled pull_all(CaptureArchive& archive, const std::function<void(const Pulled&)>& between = {}) {
  Pulled pulled;
  for (;;) {
    const ArchivePiece piece = next_archive_piece(archive);
    pulled.error = piece.error;
    if (piece.bytes.empty() || !piece.error.empty()) break;
    pulled.bytes += piece.bytes;
    pulled.sizes.push_back(piece.bytes.size());
    if (between) between(pulled);
  }
  return pulled;
}

class CaptureArchives : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    memory::system().local_time = usual_moment();
    put_captures(captures_);
  }

  // The expected archive of these files.
  static std::string whole(const Captures& captures) {
    return expected_archive(captures, usual_time, usual_date);
  }
  // The number of bytes before the data of one file.
  std::size_t data_offset(std::size_t index) const {
    std::size_t offset = 0;
    for (std::size_t before = 0; before <= index; ++before) {
      offset += 30 + names_of_captures[before].size() + (before < index ? captures_[before].size() : 0);
    }
    return offset;
  }

  Captures captures_ = noise_of_sizes({5, 65536, 65537, 200000});
};

TEST_F(CaptureArchives, ContainTheFourFilesByteForByte) {
  for (const std::array<std::size_t, 4> sizes :
       {std::array<std::size_t, 4>{1, 1, 1, 1}, {5, 65536, 65537, 200000}, {65535, 131072, 2, 131073}}) {
    SCOPED_TRACE(sizes[0]);
    const Captures captures = noise_of_sizes(sizes);
    put_captures(captures);
    CaptureArchive archive;
    ASSERT_EQ(open_capture_archive("captures", archive), "");
    EXPECT_EQ(archive_bytes(archive), sum_of(captures) + 518);
    const Pulled pulled = pull_all(archive);
    EXPECT_EQ(pulled.error, "");
    EXPECT_EQ(pulled.bytes.size(), sum_of(captures) + 518);
    EXPECT_TRUE(pulled.bytes == whole(captures));
    EXPECT_TRUE(memory::system().handles.empty());
  }
}

TEST_F(CaptureArchives, CanBeReadFromTheirEndRecord) {
  CaptureArchive archive;
  ASSERT_EQ(open_capture_archive("captures", archive), "");
  const ReadArchive read = read_archive(pull_all(archive).bytes);
  ASSERT_EQ(read.trouble, "");
  ASSERT_EQ(read.members.size(), 4u);
  for (std::size_t index = 0; index < 4; ++index) {
    EXPECT_EQ(read.members[index].name, names_of_captures[index]);
    EXPECT_TRUE(read.members[index].bytes == captures_[index]) << index;
    EXPECT_EQ(read.members[index].time, usual_time);
    EXPECT_EQ(read.members[index].date, usual_date);
  }
}

TEST_F(CaptureArchives, JoinDirectoryAndNameAsTheSystemDoes) {
  const std::pair<std::string, std::string> rows[] = {
      {"", ""},
      {"/", "/"},
      {"a/b", "a/b/"},
      {"/a/b/", "/a/b/"},
      {"C:\\", "C:\\"},
      {"C:\\ProgramData\\Velmora\\wav", "C:\\ProgramData\\Velmora\\wav\\"},
      {"C:\\a\\", "C:\\a\\"},
  };
  for (const auto& [directory, in_front_of_names] : rows) {
    SCOPED_TRACE(directory);
    memory::system().files.clear();
    for (const std::string_view name : names_of_captures) {
      memory::system().files[in_front_of_names + std::string(name)].bytes = "x";
    }
    CaptureArchive archive;
    EXPECT_EQ(open_capture_archive(directory, archive), "");
  }
}

TEST_F(CaptureArchives, InspectAllFilesBeforeTheyOpenOne) {
  memory::system().faults["CreateFileW"] = {32};
  memory::system().files.erase(capture_path(3));
  CaptureArchive archive;
  EXPECT_EQ(open_capture_archive("captures", archive), not_found);
  EXPECT_EQ(calls_of("CreateFileW"), 0);
}

// What may be wrong with a file when it is inspected.
enum class Trouble { none, missing, directory, other, empty, no_size, large };

TEST_F(CaptureArchives, AreRefusedForTheFirstBadFile) {
  constexpr std::array<Trouble, 7> troubles = {Trouble::none,  Trouble::missing, Trouble::directory,
                                               Trouble::other, Trouble::empty,   Trouble::no_size,
                                               Trouble::large};
  const auto message = [](Trouble trouble, std::size_t index) {
    switch (trouble) {
      case Trouble::none: return std::string();
      case Trouble::missing:
      case Trouble::directory:
      case Trouble::other: return not_found;
      case Trouble::empty:
      case Trouble::no_size: return empty_file(index);
      case Trouble::large: return too_large(index);
    }
    return std::string("unknown");
  };
  // Each of the four may be in any of the seven states.
  for (std::size_t row = 0; row < 7 * 7 * 7 * 7; ++row) {
    SCOPED_TRACE(row);
    memory::reset();
    std::string expected;
    std::deque<std::int64_t>& size_faults = memory::system().faults["GetFileSizeEx"];
    for (std::size_t index = 0, rest = row; index < 4; ++index, rest /= 7) {
      const Trouble trouble = troubles[rest % 7];
      if (expected.empty()) expected = message(trouble, index);
      if (trouble == Trouble::missing) continue;
      memory::File& file = capture_file(index);
      if (trouble != Trouble::empty) file.bytes = "x";
      if (trouble == Trouble::directory) file.kind = FileKind::directory;
      if (trouble == Trouble::other) file.kind = FileKind::other;
      if (trouble == Trouble::large) file.size = 0x100000000;
      size_faults.push_back(trouble == Trouble::no_size ? 5 : 0);
    }
    CaptureArchive archive;
    ASSERT_EQ(open_capture_archive("captures", archive), expected);
    ASSERT_EQ(calls_of("CreateFileW"), expected.empty() ? 4 : 0);
  }
}

TEST_F(CaptureArchives, IgnoreOtherFilesOfTheDirectory) {
  memory::system().files["captures/CAPTURE-1-HOST-IN.WAV"] = capture_file(0);
  memory::system().files["captures/capture-1-host-in.wav.part"] = capture_file(0);
  memory::system().files.erase(capture_path(0));
  CaptureArchive archive;
  EXPECT_EQ(open_capture_archive("captures", archive), not_found);
}

TEST_F(CaptureArchives, AcceptAFileOf4294967295BytesAtMost) {
  for (std::size_t index = 0; index < 4; ++index) {
    SCOPED_TRACE(index);
    put_captures(captures_);
    memory::system().log.clear();
    // It passes the inspection. The read shows that the bytes are missing.
    capture_file(index).size = 0xFFFFFFFF;
    CaptureArchive archive;
    EXPECT_EQ(open_capture_archive("captures", archive), changed(index));
    EXPECT_EQ(calls_of("GetFileSizeEx"), 4);
    memory::system().log.clear();
    for (const std::uint64_t size :
         {std::uint64_t{0x100000000}, std::uint64_t{0x100000001}, ~std::uint64_t{0}}) {
      capture_file(index).size = size;
      EXPECT_EQ(open_capture_archive("captures", archive), too_large(index));
    }
    EXPECT_EQ(calls_of("CreateFileW"), 0);
  }
}

TEST_F(CaptureArchives, AreRefusedIfAFileCannotBeOpened) {
  for (std::size_t index = 0; index < 4; ++index) {
    SCOPED_TRACE(index);
    memory::system().log.clear();
    memory::system().faults["CreateFileW"] = std::deque<std::int64_t>(index, 0);
    memory::system().faults["CreateFileW"].push_back(32);
    // A later file with another size is not reached.
    if (index < 3) capture_file(3).size = captures_[3].size() + 1;
    CaptureArchive archive;
    EXPECT_EQ(open_capture_archive("captures", archive), cannot_read(index));
    EXPECT_EQ(calls_of("CreateFileW"), static_cast<std::ptrdiff_t>(index) + 1);
    EXPECT_TRUE(memory::system().handles.empty());
    put_captures(captures_);
  }
}

TEST_F(CaptureArchives, AreRefusedIfAFileChangedSinceTheInspection) {
  for (std::size_t index = 0; index < 4; ++index) {
    SCOPED_TRACE(index);
    const std::uint64_t size = captures_[index].size();
    for (const std::uint64_t seen : {size - 1, size + 1, size + block_bytes, std::uint64_t{1}}) {
      put_captures(captures_);
      memory::system().log.clear();
      capture_file(index).size = seen;
      // A later file that cannot be read is not reached.
      if (index < 3) memory::system().fault_at = memory::CallFault{4 + index + 2, 5};
      CaptureArchive archive;
      EXPECT_EQ(open_capture_archive("captures", archive), changed(index)) << seen;
      EXPECT_EQ(calls_of("CreateFileW"), static_cast<std::ptrdiff_t>(index) + 1);
      EXPECT_TRUE(memory::system().handles.empty());
      memory::system().fault_at.reset();
    }
  }
}

TEST_F(CaptureArchives, TreatAReadErrorAsTheEndOfTheFile) {
  // After the last byte the error is the end.
  capture_file(3).read_error = 1117;
  CaptureArchive archive;
  ASSERT_EQ(open_capture_archive("captures", archive), "");
  EXPECT_TRUE(pull_all(archive).bytes == whole(captures_));
  // In the middle the file looks shorter than it was.
  capture_file(3).size = 200000;
  capture_file(3).bytes.resize(100000);
  EXPECT_EQ(open_capture_archive("captures", archive), changed(3));
  EXPECT_TRUE(memory::system().handles.empty());
}

TEST_F(CaptureArchives, EndAtAReadErrorDuringTheTransfer) {
  CaptureArchive archive;
  ASSERT_EQ(open_capture_archive("captures", archive), "");
  capture_file(3).bytes.resize(100000);
  capture_file(3).read_error = 1117;
  const Pulled pulled = pull_all(archive);
  EXPECT_EQ(pulled.error, shrank(3));
  EXPECT_TRUE(pulled.bytes == whole(captures_).substr(0, data_offset(3) + 100000));
}

TEST_F(CaptureArchives, CutAFileThatGrewAfterItsChecksum) {
  CaptureArchive archive;
  ASSERT_EQ(open_capture_archive("captures", archive), "");
  for (std::size_t index = 0; index < 4; ++index) capture_file(index).bytes += noise(70000, 9);
  const Pulled pulled = pull_all(archive);
  EXPECT_EQ(pulled.error, "");
  EXPECT_TRUE(pulled.bytes == whole(captures_));
  EXPECT_EQ(read_archive(pulled.bytes).trouble, "");
}

TEST_F(CaptureArchives, KeepTheFirstChecksumOfARewrittenFile) {
  CaptureArchive archive;
  ASSERT_EQ(open_capture_archive("captures", archive), "");
  Captures rewritten = captures_;
  rewritten[1] = noise(captures_[1].size(), 77);
  capture_file(1).bytes = rewritten[1];
  const Pulled pulled = pull_all(archive);
  EXPECT_EQ(pulled.error, "");
  std::string expected = whole(captures_);
  expected.replace(data_offset(1), rewritten[1].size(), rewritten[1]);
  EXPECT_TRUE(pulled.bytes == expected);
  EXPECT_EQ(read_archive(pulled.bytes).trouble, "checksum");
}

TEST_F(CaptureArchives, EndAfterTheLastByteOfAShrunkFile) {
  for (std::size_t index = 0; index < 4; ++index) {
    for (const std::size_t left : {std::size_t{0}, std::size_t{1}, captures_[index].size() - 1}) {
      SCOPED_TRACE(std::to_string(index) + " left with " + std::to_string(left));
      put_captures(captures_);
      CaptureArchive archive;
      ASSERT_EQ(open_capture_archive("captures", archive), "");
      capture_file(index).bytes.resize(left);
      const Pulled pulled = pull_all(archive);
      EXPECT_EQ(pulled.error, shrank(index));
      EXPECT_TRUE(pulled.bytes == whole(captures_).substr(0, data_offset(index) + left));
    }
  }
}

TEST_F(CaptureArchives, EndWhenAFileShrinksDuringTheTransfer) {
  CaptureArchive archive;
  ASSERT_EQ(open_capture_archive("captures", archive), "");
  const std::size_t first_block_ends = data_offset(3) + block_bytes;
  const Pulled pulled = pull_all(archive, [&](const Pulled& so_far) {
    if (so_far.bytes.size() == first_block_ends) capture_file(3).bytes.resize(block_bytes + 10);
  });
  EXPECT_EQ(pulled.error, shrank(3));
  EXPECT_TRUE(pulled.bytes == whole(captures_).substr(0, first_block_ends + 10));
}

TEST_F(CaptureArchives, ContinueAfterAShortBlock) {
  // The file is cut in the middle of a block and has its bytes again at the next reading.
  CaptureArchive archive;
  ASSERT_EQ(open_capture_archive("captures", archive), "");
  capture_file(3).bytes.resize(70000);
  const std::size_t cut_at = data_offset(3) + 70000;
  const Pulled pulled = pull_all(archive, [&](const Pulled& so_far) {
    if (so_far.bytes.size() == cut_at) capture_file(3).bytes = captures_[3];
  });
  EXPECT_EQ(pulled.error, "");
  EXPECT_TRUE(pulled.bytes == whole(captures_));
}

TEST_F(CaptureArchives, EndAfterTheHeaderOfAFileThatCannotBeReopened) {
  for (std::size_t index = 0; index < 4; ++index) {
    const std::vector<std::function<void()>> ways = {
        [&] {
          memory::system().faults["CreateFileW"] = std::deque<std::int64_t>(index, 0);
          memory::system().faults["CreateFileW"].push_back(5);
        },
        [&] { memory::system().files.erase(capture_path(index)); },
        [&] { capture_file(index).kind = FileKind::directory; },
    };
    for (const auto& take_away : ways) {
      SCOPED_TRACE(index);
      put_captures(captures_);
      CaptureArchive archive;
      ASSERT_EQ(open_capture_archive("captures", archive), "");
      take_away();
      const Pulled pulled = pull_all(archive);
      EXPECT_EQ(pulled.error, cannot_read(index));
      EXPECT_TRUE(pulled.bytes == whole(captures_).substr(0, data_offset(index)));
      EXPECT_TRUE(memory::system().handles.empty());
    }
  }
}

TEST_F(CaptureArchives, ComeInPiecesOfAtMostABlock) {
  CaptureArchive archive;
  ASSERT_EQ(open_capture_archive("captures", archive), "");
  const std::vector<std::size_t> expected = {51, 5,     56,    65536, 57,   65536, 1,
                                             52, 65536, 65536, 65536, 3392, 302};
  EXPECT_EQ(pull_all(archive).sizes, expected);
}

TEST_F(CaptureArchives, KeepOneFileOpenAtMost) {
  CaptureArchive archive;
  ASSERT_EQ(open_capture_archive("captures", archive), "");
  EXPECT_TRUE(memory::system().handles.empty());
  // A file is open only between its first and its last block.
  std::vector<std::size_t> open;
  pull_all(archive, [&](const Pulled&) { open.push_back(memory::system().handles.size()); });
  EXPECT_EQ(open, (std::vector<std::size_t>{0, 0, 0, 0, 0, 1, 0, 0, 1, 1, 1, 0, 0}));
}

TEST_F(CaptureArchives, ReleaseTheirFileWhenDestroyedEarly) {
  for (std::size_t pulls = 0; pulls <= 14; ++pulls) {
    {
      CaptureArchive archive;
      ASSERT_EQ(open_capture_archive("captures", archive), "");
      for (std::size_t pull = 0; pull < pulls; ++pull) static_cast<void>(next_archive_piece(archive));
    }
    EXPECT_TRUE(memory::system().handles.empty()) << pulls;
  }
}

TEST_F(CaptureArchives, GiveNothingAfterTheirEndOrAFailure) {
  for (const bool fails : {false, true}) {
    CaptureArchive archive;
    ASSERT_EQ(open_capture_archive("captures", archive), "");
    if (fails) capture_file(1).bytes.resize(10);
    const std::string error = pull_all(archive).error;
    EXPECT_EQ(error, fails ? shrank(1) : "");
    for (int again = 0; again < 3; ++again) {
      const ArchivePiece piece = next_archive_piece(archive);
      EXPECT_EQ(piece.bytes, "");
      EXPECT_EQ(piece.error, error);
    }
  }
}

TEST_F(CaptureArchives, StartOverWhenOpenedAgain) {
  CaptureArchive archive;
  for (int pulls = 0; pulls < 13; ++pulls) {
    ASSERT_EQ(open_capture_archive("captures", archive), "");
    for (int pull = 0; pull < pulls; ++pull) static_cast<void>(next_archive_piece(archive));
  }
  capture_file(2).bytes.clear();
  EXPECT_EQ(open_capture_archive("captures", archive), empty_file(2));
  put_captures(captures_);
  ASSERT_EQ(open_capture_archive("captures", archive), "");
  EXPECT_TRUE(pull_all(archive).bytes == whole(captures_));
}

TEST_F(CaptureArchives, UseOneTimeInAllHeaders) {
  CaptureArchive archive;
  ASSERT_EQ(open_capture_archive("captures", archive), "");
  int pieces = 0;
  const Pulled pulled = pull_all(archive, [&](const Pulled&) {
    memory::system().local_time = local_moment(2030, 1, 2, 3, 4, ++pieces);
  });
  EXPECT_TRUE(pulled.bytes == whole(captures_));
}

TEST_F(CaptureArchives, UseZeroWithoutALocalTime) {
  memory::system().local_time.reset();
  EXPECT_EQ(dos_time_now().time, 0);
  EXPECT_EQ(dos_time_now().date, 0);
  CaptureArchive archive;
  ASSERT_EQ(open_capture_archive("captures", archive), "");
  EXPECT_TRUE(pull_all(archive).bytes == expected_archive(captures_, 0, 0));
}

TEST_F(CaptureArchives, UseTheLocalTime) {
  EXPECT_EQ(dos_time_now().time, usual_time);
  EXPECT_EQ(dos_time_now().date, usual_date);
  memory::system().local_time = local_moment(1980, 1, 1, 0, 0, 2);
  EXPECT_EQ(dos_time_now().time, 1);
  EXPECT_EQ(dos_time_now().date, 0x21);
}

TEST_F(CaptureArchives, TruncateOffsetsBeyondFourGibibytes) {
  CaptureArchive archive;
  for (const std::string_view name : names_of_captures) {
    archive.members.push_back({name, "", 0xFFFFFFFF, 0x12345678, 0});
  }
  lay_out(archive);
  EXPECT_EQ(archive.members[0].local_header_offset, 0u);
  EXPECT_EQ(archive.members[1].local_header_offset, 51u - 1);
  EXPECT_EQ(archive.members[2].local_header_offset, 107u - 2);
  EXPECT_EQ(archive.members[3].local_header_offset, 164u - 3);
  EXPECT_EQ(archive.directory_offset, 4 * std::uint64_t{0xFFFFFFFF} + 216);
  EXPECT_EQ(archive.directory_bytes, 280u);
  EXPECT_EQ(archive_bytes(archive), 4 * std::uint64_t{0xFFFFFFFF} + 518);

  archive.member = 4;  // as though all members had been given
  std::string expected;
  const std::uint32_t offsets[] = {0, 50, 105, 161};
  for (std::size_t index = 0; index < 4; ++index) {
    expected +=
        expected_central_entry(names_of_captures[index], 0xFFFFFFFF, 0x12345678, 0, 0, offsets[index]);
  }
  EXPECT_EQ(pull_all(archive).bytes, expected + expected_end_record(4, 280, 212));
}

TEST_F(CaptureArchives, AreLaidOutByNamesAndSizes) {
  CaptureArchive archive;
  archive.members = {{"a", "", 0xFFFFFFFF - 31, 0, 9}, {"bcd", "", 7, 0, 9}};
  for (int again = 0; again < 2; ++again) {
    lay_out(archive);
    EXPECT_EQ(archive.members[0].local_header_offset, 0u);
    EXPECT_EQ(archive.members[1].local_header_offset, 0xFFFFFFFFu);
    EXPECT_EQ(archive.directory_offset, 0xFFFFFFFFull + 40);
    EXPECT_EQ(archive.directory_bytes, 47u + 49);
  }
}

}  // namespace
}  // namespace velmora
