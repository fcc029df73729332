#include "base/crc32.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "unit/capture/support/captures.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

constexpr std::size_t longest = 140000;

// The register after each prefix of the bytes, computed bit by bit.
std::vector<std::uint32_t> plain_registers(std::uint32_t crc, std::string_view bytes) {
  std::vector<std::uint32_t> registers{crc};
  for (const char byte : bytes) registers.push_back(crc = plain_register(crc, {&byte, 1}));
  return registers;
}

// Lengths around every place where an implementation may switch its method: all short ones, those around each
// multiple of 256, and more around the blocks in which files are read.
std::set<std::size_t> critical_lengths() {
  std::set<std::size_t> lengths;
  for (std::size_t length = 0; length <= 4200; ++length) lengths.insert(length);
  const auto around = [&](std::size_t length, std::size_t margin) {
    for (std::size_t near = length - margin; near <= length + margin; ++near) lengths.insert(near);
  };
  for (std::size_t length = 4352; length < longest; length += 256) around(length, 1);
  for (std::size_t block = 65536; block < longest; block += 65536) {
    for (const std::size_t more : {0u, 256u, 1280u, 2048u, 4096u}) around(block + more, 17);
    around(block - 16, 17);
  }
  return lengths;
}

std::uint32_t whole_sum(std::string_view bytes) {
  return ~crc32_update(0xFFFFFFFF, bytes.data(), bytes.size());
}

TEST(Crc32, GivesThePublishedSums) {
  std::string ascending;
  for (char byte = 0; byte < 32; ++byte) ascending.push_back(byte);
  const std::pair<std::string, std::uint32_t> rows[] = {
      {"123456789", 0xCBF43926},
      {"", 0},
      {"a", 0xE8B7BE43},
      {"abc", 0x352441C2},
      {"The quick brown fox jumps over the lazy dog", 0x414FA339},
      {std::string(32, '\0'), 0x190A55AD},
      {std::string(32, '\xFF'), 0xFF6CAB0B},
      {ascending, 0x91267E8A},
  };
  for (const auto& [bytes, sum] : rows) EXPECT_EQ(whole_sum(bytes), sum) << bytes;
}

TEST(Crc32, KeepsTheRegisterForNoBytes) {
  for (const std::uint32_t crc : {0u, 1u, 0x80000000u, 0xCBF43926u, 0xFFFFFFFFu}) {
    EXPECT_EQ(crc32_update(crc, nullptr, 0), crc);
    EXPECT_EQ(crc32_update(crc, "unused", 0), crc);
  }
}

TEST(Crc32, LeavesBothInversionsToItsCaller) {
  EXPECT_EQ(crc32_update(0, "\0\0\0", 3), 0u);
  EXPECT_EQ(crc32_update(0xFFFFFFFF, "123456789", 9), ~0xCBF43926u);
  const std::string zeros(70000, '\0');
  EXPECT_EQ(crc32_update(0, zeros.data(), zeros.size()), 0u);
}

TEST(Crc32, MatchesTheDefinitionForEachByte) {
  for (int value = 0; value < 256; ++value) {
    const char byte = static_cast<char>(value);
    for (const std::uint32_t crc : {0u, 0xFFFFFFFFu, 0x000000A5u, 0x0000A500u, 0x00A50000u, 0xA5000000u}) {
      ASSERT_EQ(crc32_update(crc, &byte, 1), plain_register(crc, {&byte, 1})) << value << " into " << crc;
    }
  }
}

TEST(Crc32, MatchesTheDefinitionAtEveryCriticalLength) {
  const std::string bytes = noise(longest, 1);
  const std::vector<std::uint32_t> expected = plain_registers(0xFFFFFFFF, bytes);
  for (const std::size_t length : critical_lengths()) {
    ASSERT_EQ(crc32_update(0xFFFFFFFF, bytes.data(), length), expected[length]) << length;
  }
}

TEST(Crc32, MatchesTheDefinitionFromAnyRegister) {
  const std::string bytes = noise(70000, 1);
  for (std::uint32_t bit = 1; bit != 0; bit <<= 1) {
    ASSERT_EQ(crc32_update(bit, bytes.data(), 2059), plain_register(bit, {bytes.data(), 2059})) << bit;
  }
  for (const std::uint32_t crc : {0u, 1u, 0x80000000u, 0xDEADBEEFu}) {
    const std::vector<std::uint32_t> expected = plain_registers(crc, bytes);
    for (const std::size_t length : {1280u, 2047u, 2048u, 2049u, 65535u, 65536u, 65537u, 67584u, 70000u}) {
      ASSERT_EQ(crc32_update(crc, bytes.data(), length), expected[length]) << crc << " over " << length;
    }
  }
}

TEST(Crc32, IsIndependentOfASplit) {
  const std::string bytes = noise(5003, 1);
  const std::uint32_t expected = plain_register(0xFFFFFFFF, bytes);
  for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
    const std::uint32_t first = crc32_update(0xFFFFFFFF, bytes.data(), cut);
    ASSERT_EQ(crc32_update(first, bytes.data() + cut, bytes.size() - cut), expected) << cut;
  }
}

TEST(Crc32, ReadsFromAnyAddress) {
  const std::string bytes = noise(65536 + 64, 1);
  for (std::size_t from = 0; from < 17; ++from) {
    for (const std::size_t length : {7u, 64u, 1283u, 2048u, 2055u, 65536u}) {
      const std::string_view part = std::string_view(bytes).substr(from, length);
      ASSERT_EQ(crc32_update(0xFFFFFFFF, part.data(), part.size()), plain_register(0xFFFFFFFF, part))
          << length << " from " << from;
    }
  }
}

TEST(Crc32, ReadsOnlyItsBytes) {
  const std::string bytes = noise(2 * 65536, 1);
  for (const std::size_t length : critical_lengths()) {
    if (length > bytes.size() || (length % 5 != 0 && length > 2100)) continue;
    const ExactBlock block(std::string_view(bytes).substr(0, length));
    const std::uint32_t crc = crc32_update(0xFFFFFFFF, block.view().data(), length);
    ASSERT_EQ(crc, crc32_update(0xFFFFFFFF, bytes.data(), length)) << length;
  }
}

}  // namespace
}  // namespace velmora
