#include "base/crc32.h"

#include <array>
#include <bit>
#include <cstring>

namespace velmora {
namespace {

constexpr std::uint32_t polynomial = 0xEDB88320;

using Table = std::array<std::uint32_t, 256>;

// One zero bit shifted through a register.
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

// The low byte of the register through the table. What goes in is xored to the register before.
std::uint32_t take_low_byte(const Table& entries, std::uint32_t crc) {
  return entries[crc & 0xFF] ^ (crc >> 8);
}

// Registers are polynomials over one bit, modulo the ZIP polynomial, highest power in bit 0. Their product.
constexpr std::uint32_t multiply(std::uint32_t left, std::uint32_t right) {
  std::uint32_t product = 0;
  for (std::uint32_t bit = 0x80000000; bit != 0; bit >>= 1) {
    product ^= (left & bit) != 0 ? right : 0;
    right = shift_bit(right);
  }
  return product;
}

// What a register is multiplied with to shift so many zero bytes through it: x to the power of 8 * `count`.
constexpr std::uint32_t zero_bytes(std::size_t count) {
  std::uint32_t result = 0x80000000;  // 1
  std::uint32_t square = 0x00800000;  // x^8
  for (; count != 0; count >>= 1) {
    if ((count & 1) != 0) result = multiply(result, square);
    square = multiply(square, square);
  }
  return result;
}

// Each lookup waits for the one before, so one chain leaves most of the processor idle. Several chains run
// side by side over neighbouring parts of equal length; all but the first start from 0, and since the
// register is linear in what it starts from and what goes in, they are joined by shifting each over the
// length of the next.
constexpr std::size_t chain_count = 8;  // as many as the registers hold

// The next four bytes, the first of them lowest.
std::uint32_t load_word(const char* data) {
  std::uint32_t word = 0;
  std::memcpy(&word, data, sizeof word);
  return word;
}

// The chains are variables of their own: g++ keeps an array of them in memory, which is four times as slow.
// Four bytes go into a register at once, and each of them meets its lookup when the shifts have brought it to
// the low end.
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

// Takes stripes off the front of the data for as long as there are any.
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
  // A whole 64 KiB block at once, and what makes the joining worth while in shorter ones.
  crc = take_stripes<8192>(entries, crc, data, length);
  crc = take_stripes<256>(entries, crc, data, length);
  for (; length != 0; ++data, --length) crc = take_low_byte(entries, crc ^ static_cast<unsigned char>(*data));
  return crc;
}

}  // namespace velmora
