// The tree of keys that the hosted registry answers from.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/hosted/registry_tree.h"

namespace velmora::hosted {
namespace {

std::vector<std::u16string> names_of(const TreeKey& key) {
  std::vector<std::u16string> names;
  for (const TreeKey& child : key.keys) names.push_back(child.name);
  return names;
}

std::vector<std::u16string> value_names_of(const TreeKey& key) {
  std::vector<std::u16string> names;
  for (const TreeValue& value : key.values) names.push_back(value.name);
  return names;
}

TreeKey three_levels() { return {u"", {}, {{u"Root", {}, {{u"Middle", {}, {{u"Leaf", {}, {}}}}}}}}; }

TEST(RegistryTree, ComparesNamesWithoutRegardToTheCaseOfAsciiLetters) {
  const struct {
    std::u16string_view left;
    std::u16string_view right;
    bool same;
  } rows[] = {{u"", u"", true},           {u"a", u"A", true},
              {u"Zz09_", u"zZ09_", true}, {u"\u00E4{A}", u"\u00E4{a}", true},
              {u"", u"a", false},         {u"a", u"ab", false},
              {u"ab", u"ba", false},      {u"\u00E4", u"\u00C4", false},
              {u"@", u"`", false},        {u"[", u"{", false},
              {u"]", u"}", false},        {u"a", u"\u0161", false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.left));
    EXPECT_EQ(same_name(row.left, row.right), row.same);
    EXPECT_EQ(same_name(row.right, row.left), row.same);
  }
}

TEST(RegistryTree, FindsKeysByTheirPaths) {
  TreeKey tree = three_levels();
  const TreeKey& constant = tree;
  EXPECT_EQ(find_key(tree, u""), &tree);
  EXPECT_EQ(find_key(constant, u""), &tree);
  EXPECT_EQ(find_key(tree, u"Root"), &tree.keys[0]);
  EXPECT_EQ(find_key(tree, u"root\\MIDDLE"), &tree.keys[0].keys[0]);
  EXPECT_EQ(find_key(constant, u"Root\\Middle\\Leaf"), &tree.keys[0].keys[0].keys[0]);
  EXPECT_EQ(find_key(tree.keys[0], u"Middle"), &tree.keys[0].keys[0]);
  for (const std::u16string_view path : {u"Leaf", u"Root\\Leaf", u"Root\\Middle\\Leaf\\More", u"Root\\",
                                         u"\\Root", u"Root\\\\Middle", u"\\", u"Roo", u"Roots"}) {
    SCOPED_TRACE(::testing::PrintToString(path));
    EXPECT_EQ(find_key(tree, path), nullptr);
  }
}

TEST(RegistryTree, MakesTheKeysThatAreMissingAndKeepsThoseThatAreThere) {
  TreeKey tree = three_levels();
  EXPECT_EQ(&make_key(tree, u""), &tree);
  EXPECT_EQ(&make_key(tree, u"ROOT\\middle"), &tree.keys[0].keys[0]);
  EXPECT_EQ(tree, three_levels());
  TreeKey& made = make_key(tree, u"ROOT\\New\\Newer");
  EXPECT_EQ(made.name, u"Newer");
  EXPECT_EQ(&made, find_key(tree, u"Root\\New\\Newer"));
  EXPECT_EQ(names_of(tree), std::vector<std::u16string>{u"Root"});
  EXPECT_EQ(names_of(tree.keys[0]), (std::vector<std::u16string>{u"Middle", u"New"}));
}

TEST(RegistryTree, PutsANewKeyBeforeTheFirstThatSortsBehindIt) {
  TreeKey tree;
  for (const std::u16string_view name : {u"m", u"C", u"z", u"a", u"_", u"cc", u"\u00E4"})
    make_key(tree, name);
  // An underline is behind the upper-case letters, and before the lower-case ones.
  EXPECT_EQ(names_of(tree), (std::vector<std::u16string>{u"a", u"C", u"cc", u"m", u"z", u"_", u"\u00E4"}));
}

TEST(RegistryTree, LeavesKeysThatAreOutOfOrderInPlace) {
  TreeKey tree;
  for (const std::u16string_view name : {u"d", u"b", u"f"}) make_key(tree, name, KeyPlace::last);
  EXPECT_EQ(names_of(tree), (std::vector<std::u16string>{u"d", u"b", u"f"}));
  make_key(tree, u"c");
  EXPECT_EQ(names_of(tree), (std::vector<std::u16string>{u"c", u"d", u"b", u"f"}));
}

TEST(RegistryTree, RemovesAKeyWithAllThatIsBelowIt) {
  TreeKey tree = three_levels();
  make_key(tree, u"Root\\Other");
  EXPECT_TRUE(remove_key(tree, u"root\\middle"));
  EXPECT_EQ(names_of(tree.keys[0]), std::vector<std::u16string>{u"Other"});
  EXPECT_TRUE(remove_key(tree, u"Root"));
  EXPECT_TRUE(tree.keys.empty());
}

TEST(RegistryTree, RemovesNoKeyThatIsNotThere) {
  TreeKey tree = three_levels();
  for (const std::u16string_view path : {u"", u"Leaf", u"Root\\Leaf", u"None\\Leaf", u"Root\\", u"\\Root"}) {
    SCOPED_TRACE(::testing::PrintToString(path));
    EXPECT_FALSE(remove_key(tree, path));
    EXPECT_EQ(tree, three_levels());
  }
}

// Long lists are searched as if sorted first.
TEST(RegistryTree, FindsEveryKeyOfALongListInAnyOrder) {
  const auto name_of = [](int number) {
    const std::string digits = std::to_string(number);
    return u"Key " + std::u16string(digits.begin(), digits.end());
  };
  for (const int step : {1, 7, 99}) {  // in order of the numbers, mixed, backwards
    for (const int count : {15, 16, 100}) {
      SCOPED_TRACE(std::to_string(step) + " " + std::to_string(count));
      TreeKey tree;
      for (int number = 0; number < count; ++number) {
        make_key(tree, name_of(number * step % 100), KeyPlace::last);
      }
      ASSERT_EQ(tree.keys.size(), static_cast<std::size_t>(count));
      for (int number = 0; number < count; ++number) {
        std::u16string name = name_of(number * step % 100);
        EXPECT_EQ(find_key(tree, name), &tree.keys[static_cast<std::size_t>(number)]);
        name[0] = u'k';
        EXPECT_EQ(find_key(tree, name), &tree.keys[static_cast<std::size_t>(number)]);
      }
      for (const std::u16string_view missing : {u"", u"A", u"Key", u"Key 1000", u"Key 5a", u"Z"}) {
        EXPECT_EQ(find_key(tree, missing), missing.empty() ? &tree : nullptr);
      }
    }
  }
}

TEST(RegistryTree, AddsValuesBehindTheOthersAndTheDefaultValueInFront) {
  TreeKey key;
  put_value(key, u"b", 3, "1");
  put_value(key, u"a", 4, "2");
  put_value(key, u"", 1, "3");
  EXPECT_EQ(value_names_of(key), (std::vector<std::u16string>{u"", u"b", u"a"}));
}

TEST(RegistryTree, ReplacesAValueInPlaceAndKeepsItsName) {
  TreeKey key{u"", {{u"", 1, "0"}, {u"First", 3, "1"}, {u"Second", 3, "2"}}, {}};
  put_value(key, u"FIRST", 4, "new");
  put_value(key, u"", 2, "other");
  const TreeKey expected{u"", {{u"", 2, "other"}, {u"First", 4, "new"}, {u"Second", 3, "2"}}, {}};
  EXPECT_EQ(key, expected);
}

TEST(RegistryTree, FindsAndRemovesValuesByName) {
  TreeKey key{u"", {{u"First", 3, "1"}, {u"Second", 3, "2"}}, {}};
  EXPECT_EQ(find_value(key, u"second"), &key.values[1]);
  EXPECT_TRUE(remove_value(key, u"FIRST"));
  EXPECT_EQ(value_names_of(key), std::vector<std::u16string>{u"Second"});
  for (const std::u16string_view name : {u"", u"Secon", u"Second ", u"First"}) {
    SCOPED_TRACE(::testing::PrintToString(name));
    EXPECT_EQ(find_value(key, name), nullptr);
    EXPECT_FALSE(remove_value(key, name));
  }
  EXPECT_EQ(key.values.size(), 1u);
}

TEST(RegistryTree, FindsEveryDifferenceBetweenTrees) {
  const TreeKey tree{u"k", {{u"v", 1, "b"}, {u"w", 1, "b"}}, {{u"x", {}, {}}, {u"y", {}, {}}}};
  EXPECT_EQ(tree, TreeKey(tree));
  const TreeKey others[] = {{u"K", tree.values, tree.keys},
                            {u"k", {{u"v", 2, "b"}, {u"w", 1, "b"}}, tree.keys},
                            {u"k", {{u"v", 1, "c"}, {u"w", 1, "b"}}, tree.keys},
                            {u"k", {{u"w", 1, "b"}, {u"v", 1, "b"}}, tree.keys},
                            {u"k", {{u"V", 1, "b"}, {u"w", 1, "b"}}, tree.keys},
                            {u"k", tree.values, {{u"y", {}, {}}, {u"x", {}, {}}}},
                            {u"k", tree.values, {{u"x", {}, {{u"z", {}, {}}}}, {u"y", {}, {}}}}};
  for (std::size_t row = 0; row < std::size(others); ++row) {
    SCOPED_TRACE(row);
    EXPECT_FALSE(tree == others[row]);
  }
}

}  // namespace
}  // namespace velmora::hosted
