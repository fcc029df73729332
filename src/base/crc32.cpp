#include "base/crc32.h"

#include <array>
#include <bit>
#include <cstring>

namespace velmora {
namespace {

constexpr std::uint32_t polynomial = 0xEDB88320;

using Table = std::array<std::uint32_t, 256>;

// Shifts one zero bit through the register.
constexpr std::uint32_t shift_bit(std::uint32_t crc) {
  return (crc >> 1) ^ ((crc & 1) != 0 ? polynomial : 0);
}

const Table& table() {
  static const Table entries = [] {
    Table made{};
    for (std::uint32_t index = 0; index < made.size(); ++index) {
      made[index] = index;
      for (int round = 0; round < 8; ++round) made[index] = shift_bit(made[index]);
    }
    return made;
  }();
  return entries;
}

// Processes the low byte of the register. The caller has already xored the input into it.
std::uint32_t take_low_byte(const Table& entries, std::uint32_t crc) {
  return entries[crc & 0xFF] ^ (crc >> 8);
}

// Multiplies two registers as polynomials over GF(2) modulo the ZIP polynomial. Bit 0 is the highest power.
constexpr std::uint32_t multiply(std::uint32_t left, std::uint32_t right) {
  std::uint32_t product = 0;
  for (std::uint32_t bit = 0x80000000; bit != 0; bit >>= 1) {
    product ^= (left & bit) != 0 ? right : 0;
    right = shift_bit(right);
  }
  return product;
}

// Returns x^(8 * count). Multiplying a register by it shifts `count` zero bytes through the register.
constexpr std::uint32_t zero_bytes(std::size_t count) {
  std::uint32_t result = 0x80000000;  // 1
  std::uint32_t square = 0x00800000;  // x^8
  for (; count != 0; count >>= 1) {
    if ((count & 1) != 0) result = multiply(result, square);
    square = multiply(square, square);
  }
  return result;
}

// Each lookup depends on the previous one, so a single chain leaves most of the processor idle. Several
// chains therefore run side by side over neighbouring parts of equal length. All but the first start from 0.
// The CRC is linear, so the results combine by shifting each register over the length of the next part.
constexpr std::size_t chain_count = 8;  // as many as fit into the processor's registers

// Loads four bytes, little-endian.
std::uint32_t load_word(const char* data) {
  std::uint32_t word = 0;
  std::memcpy(&word, data, sizeof word);
  return word;
}

// The chains are separate variables because g++ keeps an array in memory, which is four times as slow.
// Each chain xors four bytes into its register at once. The following shifts bring each byte to the low
// end for its lookup.
template <std::size_t part_bytes>
std::uint32_t take_stripe(const Table& entries, std::uint32_t crc, const char* data) {
  static_assert(part_bytes % 4 == 0 && std::endian::native == std::endian::little);
  constexpr std::uint32_t over_one_part = zero_bytes(part_bytes);
  std::uint32_t second = 0, third = 0, fourth = 0, fifth = 0, sixth = 0, seventh = 0, eighth = 0;
  for (const char* const end = data + part_bytes; data != end; data += 4) {
    crc ^= load_word(data);
    second ^= load_word(data + 1 * part_bytes);
    third ^= load_word(data + 2 * part_bytes);
    fourth ^= load_word(data + 3 * part_bytes);
    fifth ^= load_word(data + 4 * part_bytes);
    sixth ^= load_word(data + 5 * part_bytes);
    seventh ^= load_word(data + 6 * part_bytes);
    eighth ^= load_word(data + 7 * part_bytes);
    const auto step = [&] {
      crc = take_low_byte(entries, crc);
      second = take_low_byte(entries, second);
      third = take_low_byte(entries, third);
      fourth = take_low_byte(entries, fourth);
      fifth = take_low_byte(entries, fifth);
      sixth = take_low_byte(entries, sixth);
      seventh = take_low_byte(entries, seventh);
      eighth = take_low_byte(entries, eighth);
    };
    step(), step(), step(), step();
  }
  for (const std::uint32_t next : {second, third, fourth, fifth, sixth, seventh, eighth}) {
    crc = multiply(crc, over_one_part) ^ next;
  }
  return crc;
}

// Processes whole stripes from the front of the data and advances `data` past them.
template <std::size_t part_bytes>
std::uint32_t take_stripes(const Table& entries, std::uint32_t crc, const char*& data, std::size_t& length) {
  constexpr std::size_t stripe_bytes = chain_count * part_bytes;
  for (; length >= stripe_bytes; data += stripe_bytes, length -= stripe_bytes) {
    crc = take_stripe<part_bytes>(entries, crc, data);
  }
  return crc;
}

}  // namespace

std::uint32_t crc32_update(std::uint32_t crc, const char* data, std::size_t length) {
  const Table& entries = table();
  // 8192 covers a 64 KiB block per stripe. Shorter input uses 256, the smallest part worth combining.
  crc = take_stripes<8192>(entries, crc, data, length);
  crc = take_stripes<256>(entries, crc, data, length);
  for (; length != 0; ++data, --length) crc = take_low_byte(entries, crc ^ static_cast<unsigned char>(*data));
  return crc;
}

}  // namespace velmora
