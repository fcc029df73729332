#include "base/sha256.h"

#include <bit>
#include <cstdint>
#include <string>

namespace velmora {
namespace {

constexpr std::size_t block_bytes = 64;
constexpr std::size_t round_count = 64;

using State = std::array<std::uint32_t, 8>;

// Initial hash value (FIPS 180-4, 5.3.3).
constexpr State initial_state = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

// Round constants (FIPS 180-4, 4.2.2).
constexpr std::array<std::uint32_t, round_count> round_constants = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

std::uint32_t big_endian_word(std::string_view bytes) {
  std::uint32_t word = 0;
  for (std::size_t index = 0; index < 4; ++index) word = word << 8 | static_cast<unsigned char>(bytes[index]);
  return word;
}

// Message schedule (FIPS 180-4, 6.2.2).
std::array<std::uint32_t, round_count> expand_block(std::string_view block) {
  std::array<std::uint32_t, round_count> words{};
  for (std::size_t index = 0; index < 16; ++index) words[index] = big_endian_word(block.substr(index * 4));
  for (std::size_t index = 16; index < round_count; ++index) {
    const std::uint32_t early = words[index - 15];
    const std::uint32_t late = words[index - 2];
    const std::uint32_t sigma0 = std::rotr(early, 7) ^ std::rotr(early, 18) ^ (early >> 3);
    const std::uint32_t sigma1 = std::rotr(late, 17) ^ std::rotr(late, 19) ^ (late >> 10);
    words[index] = words[index - 16] + sigma0 + words[index - 7] + sigma1;
  }
  return words;
}

void take_block(State& state, std::string_view block) {
  const auto words = expand_block(block);
  auto [a, b, c, d, e, f, g, h] = state;
  for (std::size_t round = 0; round < round_count; ++round) {
    const std::uint32_t sum1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
    const std::uint32_t choice = (e & f) ^ (~e & g);
    const std::uint32_t first = h + sum1 + choice + round_constants[round] + words[round];
    const std::uint32_t sum0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
    const std::uint32_t majority = (a & b) ^ (a & c) ^ (b & c);
    h = g;
    g = f;
    f = e;
    e = d + first;
    d = c;
    c = b;
    b = a;
    a = first + sum0 + majority;
  }
  const State added = {a, b, c, d, e, f, g, h};
  for (std::size_t index = 0; index < state.size(); ++index) state[index] += added[index];
}

// Appends the padding and the length in bits (FIPS 180-4, 5.1.1).
std::string padded(std::string_view bytes) {
  std::string message(bytes);
  message += '\x80';
  while (message.size() % block_bytes != block_bytes - 8) message += '\0';
  const std::uint64_t bits = std::uint64_t{bytes.size()} * 8;
  for (unsigned shift = 64; shift != 0; shift -= 8) message += static_cast<char>(bits >> (shift - 8));
  return message;
}

}  // namespace

std::array<unsigned char, sha256_bytes> sha256(std::string_view bytes) {
  State state = initial_state;
  const std::string message = padded(bytes);
  for (std::size_t place = 0; place < message.size(); place += block_bytes) {
    take_block(state, std::string_view(message).substr(place, block_bytes));
  }
  std::array<unsigned char, sha256_bytes> digest{};
  for (std::size_t index = 0; index < digest.size(); ++index) {
    digest[index] = static_cast<unsigned char>(state[index / 4] >> (24 - index % 4 * 8));
  }
  return digest;
}

}  // namespace velmora
