// A fixed list of assertions over the pure logic, run on the machine where the program stands.
#pragma once

namespace velmora {

// Evaluates all assertions and prints to standard output "Velmora control self-test passed\n" or "...
// failed\n". It needs no web root, socket or network; its mapping is private to this process id and gone at
// the end. It grows with the rooms: today it covers the JSON finders, the token, endpoint ids, chain
// editing, the parameters' way through a bridge, and the names of presets.
[[nodiscard]] bool run_self_test();

}  // namespace velmora
