#include "capture/zip.h"

#include <gtest/gtest.h>

#include <vector>

#include "unit/capture/support/captures.h"

namespace velmora {
namespace {

// The bytes of all fields, which fill the record without a gap.
std::string bytes_by_table(const std::vector<RecordField>& fields) {
  std::string bytes;
  for (const RecordField& field : fields) {
    EXPECT_EQ(bytes.size(), field.offset);
    for (std::size_t index = 0; index < field.width; ++index) {
      bytes.push_back(static_cast<char>((field.value >> (8 * index)) & 0xFF));
    }
  }
  return bytes;
}

// No two fields have an equal value, and all bytes of a value differ.
constexpr ZipMember distinct_member{"name of it.wav", 0x11223344, 0x55667788, 0x99AABBCC};
constexpr DosTime distinct_moment{0xD1D2, 0xE3E4};

TEST(Zip, WritesNumbersLeastByteFirst) {
  std::string out = "before";
  put_u16_le(out, 0x1234);
  put_u32_le(out, 0x89ABCDEF);
  EXPECT_EQ(out, "before\x34\x12\xEF\xCD\xAB\x89");
  for (const int number : {0x0000, 0x00FF, 0x0100, 0x8000, 0xFFFF}) {
    const auto value = static_cast<std::uint16_t>(number);
    std::string two;
    put_u16_le(two, value);
    EXPECT_EQ(two, bytes_by_table({{0, 2, value}}));
  }
  for (const std::uint32_t value : {0u, 0xFFu, 0x8000u, 0x10000u, 0x80000000u, 0xFFFFFFFFu}) {
    std::string four;
    put_u32_le(four, value);
    EXPECT_EQ(four, bytes_by_table({{0, 4, value}}));
  }
}

TEST(Zip, WritesALocalHeader) {
  const std::vector<RecordField> fields = {
      {0, 4, 0x04034B50},   // signature
      {4, 2, 20},           // version needed
      {6, 2, 0},            // flags
      {8, 2, 0},            // stored
      {10, 2, 0xD1D2},      // time
      {12, 2, 0xE3E4},      // date
      {14, 4, 0x55667788},  // checksum
      {18, 4, 0x11223344},  // compressed size
      {22, 4, 0x11223344},  // size
      {26, 2, 14},          // length of the name
      {28, 2, 0},           // extra field
  };
  std::string out;
  put_local_header(out, distinct_member, distinct_moment);
  EXPECT_EQ(out, bytes_by_table(fields) + "name of it.wav");
  EXPECT_EQ(out.substr(0, 4), "PK\x03\x04");
  EXPECT_EQ(out.size(), local_header_bytes + distinct_member.name.size());
}

TEST(Zip, WritesACentralEntry) {
  const std::vector<RecordField> fields = {
      {0, 4, 0x02014B50},   // signature
      {4, 2, 20},           // version made by
      {6, 2, 20},           // version needed
      {8, 2, 0},            // flags
      {10, 2, 0},           // stored
      {12, 2, 0xD1D2},      // time
      {14, 2, 0xE3E4},      // date
      {16, 4, 0x55667788},  // checksum
      {20, 4, 0x11223344},  // compressed size
      {24, 4, 0x11223344},  // size
      {28, 2, 14},          // length of the name
      {30, 2, 0},           // extra field
      {32, 2, 0},           // comment
      {34, 2, 0},           // disk
      {36, 2, 0},           // internal attributes
      {38, 4, 0},           // external attributes
      {42, 4, 0x99AABBCC},  // offset of the local header
  };
  std::string out;
  put_central_entry(out, distinct_member, distinct_moment);
  EXPECT_EQ(out, bytes_by_table(fields) + "name of it.wav");
  EXPECT_EQ(out.substr(0, 4), "PK\x01\x02");
  EXPECT_EQ(out.size(), central_entry_bytes + distinct_member.name.size());
}

TEST(Zip, WritesAnEndRecord) {
  const std::vector<RecordField> fields = {
      {0, 4, 0x06054B50},   // signature
      {4, 2, 0},            // this disk
      {6, 2, 0},            // the directory's disk
      {8, 2, 0x0304},       // entries on this disk
      {10, 2, 0x0304},      // entries in all
      {12, 4, 0x11223344},  // size of the directory
      {16, 4, 0x55667788},  // offset of the directory
      {20, 2, 0},           // comment
  };
  std::string out;
  put_end_record(out, 0x0304, 0x11223344, 0x55667788);
  EXPECT_EQ(out, bytes_by_table(fields));
  EXPECT_EQ(out.substr(0, 4), "PK\x05\x06");
  EXPECT_EQ(out.size(), end_record_bytes);
}

TEST(Zip, AppendsRecords) {
  std::string out = "x";
  put_local_header(out, distinct_member, distinct_moment);
  put_central_entry(out, distinct_member, distinct_moment);
  put_end_record(out, 1, 2, 3);
  EXPECT_EQ(out,
            "x" + expected_local_header("name of it.wav", 0x11223344, 0x55667788, 0xD1D2, 0xE3E4) +
                expected_central_entry("name of it.wav", 0x11223344, 0x55667788, 0xD1D2, 0xE3E4, 0x99AABBCC) +
                expected_end_record(1, 2, 3));
}

TEST(Zip, EncodesALocalTimeInTwoWords) {
  const struct {
    std::tm moment;
    std::uint16_t time;
    std::uint16_t date;
  } rows[] = {
      {usual_moment(), usual_time, usual_date},
      {local_moment(1980, 1, 1, 0, 0, 0), 0x0000, 0x0021},
      {local_moment(2016, 12, 31, 23, 59, 60), 0xBF7E, 0x499F},  // a leap second
      {local_moment(2107, 12, 31, 23, 59, 59), 0xBF7D, 0xFF9F},
      {local_moment(2108, 1, 1, 0, 0, 1), 0x0000, 0x0021},
      {local_moment(2236, 2, 29, 12, 30, 31), 0x63CF, 0x005D},
      {local_moment(1979, 12, 31, 0, 1, 0), 0x0020, 0xFF9F},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.moment.tm_year + 1900);
    const DosTime moment = dos_time_of(row.moment);
    EXPECT_EQ(moment.time, row.time);
    EXPECT_EQ(moment.date, row.date);
  }
  EXPECT_EQ(dos_time_of(usual_moment()).date >> 9, 46);
}

TEST(Zip, KeepsEachPartOfATimeInItsOwnBits) {
  for (int hour = 0; hour < 24; ++hour) {
    EXPECT_EQ(dos_time_of(local_moment(1980, 1, 1, hour, 0, 0)).time, hour * 2048) << hour;
  }
  for (int minute = 0; minute < 60; ++minute) {
    EXPECT_EQ(dos_time_of(local_moment(1980, 1, 1, 0, minute, 0)).time, minute * 32) << minute;
  }
  for (int second = 0; second <= 60; ++second) {
    EXPECT_EQ(dos_time_of(local_moment(1980, 1, 1, 0, 0, second)).time, second / 2) << second;
  }
  for (int month = 1; month <= 12; ++month) {
    EXPECT_EQ(dos_time_of(local_moment(1980, month, 1, 0, 0, 0)).date, month * 32 + 1) << month;
  }
  for (int day = 1; day <= 31; ++day) {
    EXPECT_EQ(dos_time_of(local_moment(1980, 1, day, 0, 0, 0)).date, 32 + day) << day;
  }
  for (int year = 1980; year < 2300; ++year) {
    EXPECT_EQ(dos_time_of(local_moment(year, 1, 1, 0, 0, 0)).date, (year - 1980) % 128 * 512 + 33) << year;
  }
}

}  // namespace
}  // namespace velmora
