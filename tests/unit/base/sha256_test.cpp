#include "base/sha256.h"

#include <gtest/gtest.h>

#include <string>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

std::string hex_digest(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : sha256(bytes)) {
    text += digits[byte / 16];
    text += digits[byte % 16];
  }
  return text;
}

// The vectors of FIPS 180-4's own examples, and those that NIST published beside them.
TEST(Sha256, GivesThePublishedDigests) {
  const std::pair<std::string, std::string> rows[] = {
      {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
      {"abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmno"
       "ijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu",
       "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1"},
      {std::string(1'000'000, 'a'), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
      {"\xbd", "68325720aabd7c82f30f554b313d0570c95accbb7dc4b5aae11204c08ffe732b"},
      {std::string(55, '\0'), "02779466cdec163811d078815c633f21901413081449002f24aa3e80f0b88ef7"},
      {std::string(56, '\0'), "d4817aa5497628e7c77e6b606107042bbba3130888c5f47a375e6179be789fbb"},
      {std::string(57, '\0'), "65a16cb7861335d5ace3c60718b5052e44660726da4cd13bb745381b235a1785"},
      {std::string(64, '\0'), "f5a5fd42d16a20302798ef6ed309979b43003d2320d9f0e8ea9831a92759fb4b"},
      {std::string(1000, '\0'), "541b3e9daa09b20bf85fa273e5cbd3e80185aa4ec298e765db87742b70138a53"},
      {std::string(1000, 'A'), "c2e686823489ced2017f6059b8b239318b6364f6dcd835d0a519105a1eadd6e4"},
      {std::string(1005, 'U'), "f4d62ddec0f3dd90ea1380fa16a5ff8dc4c54b21740650f24afc4120903552b0"},
  };
  for (const auto& [message, digest] : rows) {
    SCOPED_TRACE(message.size());
    EXPECT_EQ(hex_digest(message), digest);
  }
}

TEST(Sha256, ReadsOnlyTheMessage) {
  const std::string zeros(130, '\0');
  for (std::size_t length = 0; length <= zeros.size(); ++length) {
    const ExactBlock block(std::string_view(zeros).substr(0, length));
    EXPECT_EQ(sha256(block.view()), sha256(std::string(length, '\0')));
  }
}

TEST(Sha256, ChangesWithEachBitOfTheMessage) {
  const std::string message(100, '\x5a');
  const auto digest = sha256(message);
  for (std::size_t bit = 0; bit < message.size() * 8; ++bit) {
    std::string changed = message;
    changed[bit / 8] = static_cast<char>(static_cast<unsigned char>(changed[bit / 8]) ^ (1u << bit % 8));
    EXPECT_NE(sha256(changed), digest) << bit;
  }
}

}  // namespace
}  // namespace velmora
