#include "bridge/words.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace velmora {
namespace {

template <typename Word>
class SharedWord : public ::testing::Test {};
using WordTypes = ::testing::Types<std::uint32_t, std::uint64_t>;
TYPED_TEST_SUITE(SharedWord, WordTypes);

TYPED_TEST(SharedWord, IsUnchangedByReading) {
  for (const TypeParam value : {TypeParam{0}, TypeParam{1}, static_cast<TypeParam>(~TypeParam{0})}) {
    TypeParam word = value;
    EXPECT_EQ(load_word(word), value);
    EXPECT_EQ(word, value);
  }
}

TYPED_TEST(SharedWord, HoldsTheStoredValue) {
  TypeParam word = 5;
  store_word(word, static_cast<TypeParam>(~TypeParam{0}));
  EXPECT_EQ(word, static_cast<TypeParam>(~TypeParam{0}));
  store_word(word, TypeParam{0});
  EXPECT_EQ(load_word(word), TypeParam{0});
}

TYPED_TEST(SharedWord, CountsAndWraps) {
  TypeParam word = 5;
  add_to_word(word, TypeParam{3});
  EXPECT_EQ(word, TypeParam{8});
  word = static_cast<TypeParam>(~TypeParam{0});
  add_to_word(word, TypeParam{2});
  EXPECT_EQ(word, TypeParam{1});
}

TYPED_TEST(SharedWord, IsExchangedWhenItHasTheExpectedValue) {
  for (const TypeParam value : {TypeParam{0}, TypeParam{7}, static_cast<TypeParam>(~TypeParam{0})}) {
    TypeParam word = value;
    TypeParam present = value;
    EXPECT_TRUE(exchange_word(word, present, static_cast<TypeParam>(value ^ 5)));
    EXPECT_EQ(word, static_cast<TypeParam>(value ^ 5));
    EXPECT_EQ(present, value);
  }
}

TYPED_TEST(SharedWord, KeepsAndReturnsAnUnexpectedValue) {
  const auto full = static_cast<TypeParam>(~TypeParam{0});
  const auto highest_bit = static_cast<TypeParam>(full ^ (full >> 1));
  for (const TypeParam value : {TypeParam{0}, TypeParam{7}, highest_bit, full}) {
    for (const TypeParam difference : {TypeParam{1}, highest_bit}) {
      TypeParam word = value;
      auto present = static_cast<TypeParam>(value ^ difference);
      EXPECT_FALSE(exchange_word(word, present, TypeParam{42}));
      EXPECT_EQ(word, value);
      EXPECT_EQ(present, value);
      EXPECT_TRUE(exchange_word(word, present, TypeParam{42}));
      EXPECT_EQ(word, TypeParam{42});
    }
  }
}

TYPED_TEST(SharedWord, LeavesItsNeighboursAlone) {
  TypeParam words[] = {static_cast<TypeParam>(~TypeParam{0}), 0, static_cast<TypeParam>(~TypeParam{0})};
  store_word(words[1], TypeParam{1});
  add_to_word(words[1], TypeParam{1});
  TypeParam present = 2;
  EXPECT_TRUE(exchange_word(words[1], present, TypeParam{3}));
  EXPECT_EQ(load_word(words[0]), static_cast<TypeParam>(~TypeParam{0}));
  EXPECT_EQ(load_word(words[1]), TypeParam{3});
  EXPECT_EQ(load_word(words[2]), static_cast<TypeParam>(~TypeParam{0}));
}

TEST(GuardedWord, HoldsTheStoredValue) {
  std::uint64_t word = 0;
  store_guarded(word, 0x0123456789ABCDEFu);
  full_barrier();
  EXPECT_EQ(load_guarded(word), 0x0123456789ABCDEFu);
}

}  // namespace
}  // namespace velmora
