// Decides what a bind or an unbind changes, from the values that were read. Pure.
#pragma once

#include <string>
#include <string_view>

#include "binding/chain.h"

namespace velmora {

struct BindingPlan {
  Chain chain;                 // the chain afterwards
  bool chain_changes = false;  // it differs from the present one, case included
  std::string moves;           // the driver's effect to move from the slot into the chain; empty: none
  std::string restores;        // the moved effect to put back into the slot; empty: none
};

// Adds the effect in `legacy_slot` (empty: none), since the slot would suppress the chain, then `effect`.
// Each is appended unless the chain already contains it. A slot with exactly the text of `effect` is kept.
[[nodiscard]] BindingPlan plan_bind(const Chain& present, std::string_view effect,
                                    std::string_view legacy_slot);

// Removes `effect` from the chain, and the effect that an earlier bind moved there (empty: none).
[[nodiscard]] BindingPlan plan_unbind(const Chain& present, std::string_view effect,
                                      std::string_view moved_earlier);

// True if chain and slot stay as they are. Mode lists are not considered.
[[nodiscard]] bool has_nothing_to_do(const BindingPlan& plan);

}  // namespace velmora
