// A fixed list of assertions about the pure logic, to be run on the machine where the program is installed.
#pragma once

namespace velmora {

// Evaluates all assertions and prints "Velmora control self-test passed\n" or "... failed\n" to standard
// output. Returns true if all hold. Needs no web root, socket or network. Its mapping has the process id in
// its name and is released at the end.
//
// Covers the JSON finders, the token, endpoint ids, chain editing, parameters and reports passed through a
// bridge, and preset names.
[[nodiscard]] bool run_self_test();

}  // namespace velmora
