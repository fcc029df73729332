#include "binding/plan.h"

namespace velmora {

BindingPlan plan_bind(const Chain& present, std::string_view effect, std::string_view legacy_slot) {
  BindingPlan plan{present, false, {}, {}};
  // Compare the exact text: any other spelling is moved and recorded as it is, for an unbind to restore.
  if (legacy_slot != effect) plan.moves = legacy_slot;
  if (!plan.moves.empty()) plan.chain = chain_with(plan.chain, plan.moves);
  plan.chain = chain_with(plan.chain, effect);
  plan.chain_changes = plan.chain != present;
  return plan;
}

BindingPlan plan_unbind(const Chain& present, std::string_view effect, std::string_view moved_earlier) {
  BindingPlan plan{chain_without(present, effect), false, {}, std::string(moved_earlier)};
  if (!plan.restores.empty()) plan.chain = chain_without(plan.chain, plan.restores);
  plan.chain_changes = plan.chain != present;
  return plan;
}

bool has_nothing_to_do(const BindingPlan& plan) {
  return !plan.chain_changes && plan.moves.empty() && plan.restores.empty();
}

}  // namespace velmora
