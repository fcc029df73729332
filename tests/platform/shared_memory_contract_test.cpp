#include "platform/shared_memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "platform/surroundings.h"

namespace velmora {
namespace {

using surroundings::find_free_mapping_name;
using surroundings::hold_elsewhere;
using surroundings::make_mapping;

constexpr std::uint32_t error_missing = 2;
constexpr std::uint32_t error_denied = 5;
constexpr std::size_t record_size = 576;

class SharedMemoryContract : public surroundings::Arranged {};

std::vector<std::uint64_t> words_of(const SharedView& view) {
  std::vector<std::uint64_t> words(view.native().size / sizeof(std::uint64_t));
  std::memcpy(words.data(), view.native().data, words.size() * sizeof(std::uint64_t));
  return words;
}

SharedMapping open(std::u16string_view name) {
  SharedMapping mapping;
  EXPECT_EQ(open_shared_mapping(name, mapping), std::nullopt);
  return mapping;
}

SharedView map(const SharedMapping& mapping, std::size_t size) {
  SharedView view;
  EXPECT_EQ(map_shared_view(mapping, size, view), std::nullopt);
  return view;
}

// The word at the start of the first view, by whichever view it is written or read.
std::uint64_t* first_word(const SharedView& view) { return static_cast<std::uint64_t*>(view.native().data); }

TEST_F(SharedMemoryContract, AnswersTwoForAMissingObject) {
  SharedMapping mapping;
  EXPECT_EQ(open_shared_mapping(find_free_mapping_name(), mapping), error_missing);
  EXPECT_FALSE(mapping.is_open());
}

TEST_F(SharedMemoryContract, LeavesTheFormerMappingInPlaceWhenTheNextIsMissing) {
  const std::u16string name = find_free_mapping_name();
  const auto elsewhere = hold_elsewhere(name, {11, 22});
  SharedMapping mapping = open(name);
  const auto former = mapping.native();
  EXPECT_EQ(open_shared_mapping(find_free_mapping_name(), mapping), error_missing);
  EXPECT_TRUE(mapping.is_open());
  EXPECT_EQ(mapping.native(), former);
  const SharedView view = map(mapping, 16);
  EXPECT_EQ(words_of(view), (std::vector<std::uint64_t>{11, 22}));
}

TEST_F(SharedMemoryContract, OpensWhatAnotherProcessHolds) {
  const std::u16string name = find_free_mapping_name();
  const auto elsewhere = hold_elsewhere(name, {1, 0x8000000000000000u, ~std::uint64_t{0}});
  const SharedMapping mapping = open(name);
  const SharedView view = map(mapping, 24);
  ASSERT_EQ(view.native().size, 24u);
  EXPECT_EQ(words_of(view), (std::vector<std::uint64_t>{1, 0x8000000000000000u, ~std::uint64_t{0}}));
}

TEST_F(SharedMemoryContract, MakesANewObjectOfZeros) {
  const std::u16string name = find_free_mapping_name();
  SharedMapping mapping;
  const CreatedMapping created = make_mapping(name, record_size, mapping);
  EXPECT_EQ(created.descriptor_error, std::nullopt);
  EXPECT_EQ(created.create_error, std::nullopt);
  EXPECT_FALSE(created.already_existed);
  const SharedView view = map(mapping, record_size);
  EXPECT_EQ(words_of(view), std::vector<std::uint64_t>(record_size / 8, 0));
}

TEST_F(SharedMemoryContract, GivesAViewAtTheStartOfAPage) {
  SharedMapping mapping;
  static_cast<void>(make_mapping(find_free_mapping_name(), record_size, mapping));
  const SharedView view = map(mapping, record_size);
  EXPECT_EQ(view.native().size, record_size);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(view.native().data) % 16, 0u);
}

TEST_F(SharedMemoryContract, SharesOneObjectBetweenTwoOpeners) {
  const std::u16string name = find_free_mapping_name();
  SharedMapping made;
  static_cast<void>(make_mapping(name, record_size, made));
  const SharedMapping opened = open(name);
  const SharedView one = map(made, record_size);
  const SharedView other = map(opened, record_size);
  *first_word(one) = 0x1122334455667788;
  EXPECT_EQ(*first_word(other), 0x1122334455667788u);
  *first_word(other) = 5;
  EXPECT_EQ(*first_word(one), 5u);
}

TEST_F(SharedMemoryContract, KeepsObjectsOfDifferentNamesApart) {
  SharedMapping one;
  SharedMapping other;
  static_cast<void>(make_mapping(find_free_mapping_name(), record_size, one));
  static_cast<void>(make_mapping(find_free_mapping_name(), record_size, other));
  const SharedView view_of_one = map(one, record_size);
  const SharedView view_of_other = map(other, record_size);
  *first_word(view_of_one) = 7;
  EXPECT_EQ(*first_word(view_of_other), 0u);
}

TEST_F(SharedMemoryContract, TellsThatAnotherProcessMadeItFirstAndKeepsItsContents) {
  const std::u16string name = find_free_mapping_name();
  const auto elsewhere = hold_elsewhere(name, std::vector<std::uint64_t>(record_size / 8, 9));
  SharedMapping mapping;
  const CreatedMapping created = make_mapping(name, record_size, mapping);
  EXPECT_EQ(created.descriptor_error, std::nullopt);
  EXPECT_EQ(created.create_error, std::nullopt);
  EXPECT_TRUE(created.already_existed);
  const SharedView view = map(mapping, record_size);
  EXPECT_EQ(words_of(view), std::vector<std::uint64_t>(record_size / 8, 9));
}

TEST_F(SharedMemoryContract, AnswersFiveForAViewOfASmallerObject) {
  const std::u16string name = find_free_mapping_name();
  const auto elsewhere = hold_elsewhere(name, std::vector<std::uint64_t>(288 / 8, 3));
  const SharedMapping mapping = open(name);
  SharedView view = map(mapping, 288);
  const auto former = view.native();
  for (const std::size_t size : {std::size_t{4097}, std::size_t{65536}}) {
    SCOPED_TRACE(size);
    EXPECT_EQ(map_shared_view(mapping, size, view), error_denied);
    EXPECT_EQ(view.native(), former);
  }
  EXPECT_EQ(words_of(view), std::vector<std::uint64_t>(288 / 8, 3));
}

TEST_F(SharedMemoryContract, MapsThePartOfALargerObject) {
  const std::u16string name = find_free_mapping_name();
  const auto elsewhere = hold_elsewhere(name, std::vector<std::uint64_t>(8192 / 8, 4));
  const SharedMapping mapping = open(name);
  const SharedView view = map(mapping, record_size);
  EXPECT_EQ(words_of(view), std::vector<std::uint64_t>(record_size / 8, 4));
}

TEST_F(SharedMemoryContract, EndsTheObjectWithItsLastHolder) {
  const std::u16string name = find_free_mapping_name();
  SharedMapping first;
  static_cast<void>(make_mapping(name, record_size, first));
  SharedMapping second = open(name);
  SharedView view = map(second, record_size);
  *first_word(view) = 77;

  first.close();
  SharedMapping third = open(name);
  third.close();
  view.close();
  second.close();
  EXPECT_EQ(open_shared_mapping(name, first), error_missing);

  // What comes under the name afterwards is new.
  const CreatedMapping created = make_mapping(name, record_size, first);
  EXPECT_FALSE(created.already_existed);
  view = map(first, record_size);
  EXPECT_EQ(*first_word(view), 0u);
}

TEST_F(SharedMemoryContract, OutlivesItsMakerForAsLongAsAnotherHolds) {
  const std::u16string name = find_free_mapping_name();
  auto elsewhere = hold_elsewhere(name, {42});
  SharedMapping mapping = open(name);
  elsewhere.close();
  SharedMapping again = open(name);
  {
    const SharedView view = map(again, 8);
    EXPECT_EQ(*first_word(view), 42u);
  }
  mapping.close();
  again.close();
  EXPECT_EQ(open_shared_mapping(name, mapping), error_missing);
}

TEST_F(SharedMemoryContract, LeavesAnotherProcessItsObjectWhenWeClose) {
  const std::u16string name = find_free_mapping_name();
  auto elsewhere = hold_elsewhere(name, {42});
  SharedMapping mapping = open(name);
  mapping.close();
  EXPECT_EQ(open_shared_mapping(name, mapping), std::nullopt);
  mapping.close();
  elsewhere.close();
  EXPECT_EQ(open_shared_mapping(name, mapping), error_missing);
}

}  // namespace
}  // namespace velmora
