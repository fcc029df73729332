// A fixed list of assertions over the pure logic, run on the machine where the program stands.
#pragma once

namespace velmora {

// Evaluates all assertions and prints to standard output "Velmora control self-test passed\n" or "...
// failed\n". It needs no web root, socket or network; its mapping is private to this process id and gone at
// the end. It covers the JSON finders, the token, endpoint ids, chain editing, parameters and the effect's
// reports on their way through a bridge, and the names of presets.
[[nodiscard]] bool run_self_test();

}  // namespace velmora
