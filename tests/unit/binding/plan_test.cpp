#include "binding/plan.h"

#include <gtest/gtest.h>

#include "unit/binding/support/endpoint_machine.h"

namespace velmora {
namespace {

using endpoint::class_a;
using endpoint::spell;
using endpoint::spell_one;

struct Row {
  std::string chain;
  std::string other;  // a bind's legacy slot, an unbind's moved effect
  std::string result;
  bool changes;
  std::string acts_on;  // what is moved or restored
};

TEST(Plan, AppendsTheEffectAfterTheLegacyEffect) {
  const Row rows[] = {
      {"", "", "A", true, ""},
      {"F", "", "F A", true, ""},
      {"F F", "", "F F A", true, ""},
      {"A", "", "A", false, ""},
      {"a", "", "a", false, ""},
      {"A F", "", "A F", false, ""},
      {"A a A", "", "A a A", false, ""},
      {"", "A", "A", true, ""},
      {"F", "A", "F A", true, ""},
      {"A", "A", "A", false, ""},
      {"a", "A", "a", false, ""},
      {"", "L", "L A", true, "L"},
      {"F", "L", "F L A", true, "L"},
      {"L", "L", "L A", true, "L"},
      {"l F", "L", "l F A", true, "L"},
      {"A", "L", "A L", true, "L"},
      {"A F", "L", "A F L", true, "L"},
      {"A L", "L", "A L", false, "L"},
      {"L A", "L", "L A", false, "L"},
      {"A l", "L", "A l", false, "L"},
      // In lower case the slot's effect counts as another one, which the chain then finds to be the same.
      {"", "a", "a", true, "a"},
      {"A", "a", "A", false, "a"},
      {"F a", "a", "F a", false, "a"},
      {"F", "a", "F a", true, "a"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE("chain \"" + row.chain + "\", slot \"" + row.other + "\"");
    const BindingPlan plan = plan_bind(spell(row.chain), spell_one("A"), spell_one(row.other));
    EXPECT_EQ(plan.chain, spell(row.result));
    EXPECT_EQ(plan.chain_changes, row.changes);
    EXPECT_EQ(plan.moves, spell_one(row.acts_on));
    EXPECT_EQ(plan.restores, "");
    EXPECT_EQ(has_nothing_to_do(plan), !row.changes && row.acts_on.empty());
  }
}

TEST(Plan, RemovesTheEffectAndTheMovedOne) {
  const Row rows[] = {
      {"", "", "", false, ""},      {"F", "", "F", false, ""},      {"A", "", "", true, ""},
      {"a", "", "", true, ""},      {"F A f", "", "F f", true, ""}, {"A F a A", "", "F", true, ""},
      {"L A", "", "L", true, ""},   {"", "M", "", false, "M"},      {"F", "M", "F", false, "M"},
      {"M", "M", "", true, "M"},    {"F M A", "M", "F", true, "M"}, {"F m A M", "M", "F", true, "M"},
      {"F A", "M", "F", true, "M"}, {"F A", "A", "F", true, "A"},   {"F", "a", "F", false, "a"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE("chain \"" + row.chain + "\", moved \"" + row.other + "\"");
    const BindingPlan plan = plan_unbind(spell(row.chain), spell_one("A"), spell_one(row.other));
    EXPECT_EQ(plan.chain, spell(row.result));
    EXPECT_EQ(plan.chain_changes, row.changes);
    EXPECT_EQ(plan.moves, "");
    EXPECT_EQ(plan.restores, spell_one(row.acts_on));
    EXPECT_EQ(has_nothing_to_do(plan), !row.changes && row.acts_on.empty());
  }
}

// Without a class id of its own there is nothing that could be found in a chain; an empty entry stands for
// it.
TEST(Plan, TreatsAnEmptyEffectAsAnEntry) {
  const BindingPlan bind = plan_bind({"x"}, "", "");
  EXPECT_EQ(bind.chain, (Chain{"x", ""}));
  EXPECT_TRUE(bind.chain_changes);
  EXPECT_EQ(bind.moves, "");
  const BindingPlan move = plan_bind({"x"}, "", "y");
  EXPECT_EQ(move.chain, (Chain{"x", "y", ""}));
  EXPECT_EQ(move.moves, "y");
  EXPECT_TRUE(has_nothing_to_do(plan_unbind({"x"}, "", "")));
}

TEST(Plan, LeavesEmptyEntriesWithoutAMovedEffect) {
  EXPECT_EQ(plan_unbind({"x", "", class_a}, class_a, "").chain, (Chain{"x", ""}));
  EXPECT_EQ(plan_bind({"x", ""}, class_a, "").chain, (Chain{"x", "", class_a}));
}

}  // namespace
}  // namespace velmora
