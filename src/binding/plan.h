// What a bind or an unbind has to do to an endpoint, decided on what was read of it. Pure.
#pragma once

#include <string>
#include <string_view>

#include "binding/chain.h"

namespace velmora {

struct BindingPlan {
  Chain chain;                 // as it has to be afterwards
  bool chain_changes = false;  // it differs from the present one, case included
  std::string moves;     // the driver's effect to be moved out of the legacy slot into the chain; empty: none
  std::string restores;  // the moved effect that has to go back from the chain into the slot; empty: none
};

// `effect` goes to the chain's end; what the legacy slot holds (empty: nothing) goes in front of it, since
// the slot would suppress the chain. A slot that holds the very text of `effect` stays.
[[nodiscard]] BindingPlan plan_bind(const Chain& present, std::string_view effect,
                                    std::string_view legacy_slot);

// `effect` leaves the chain, and with it what an earlier bind moved there (empty: nothing).
[[nodiscard]] BindingPlan plan_unbind(const Chain& present, std::string_view effect,
                                      std::string_view moved_earlier);

// Whether the endpoint is already as the plan wants it; mode lists are another matter.
[[nodiscard]] bool has_nothing_to_do(const BindingPlan& plan);

}  // namespace velmora
