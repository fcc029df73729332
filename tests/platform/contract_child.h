// The program that contract tests start as a child.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velmora::contract_child {

// Runs the program; returns its exit code.
[[nodiscard]] int run(const std::vector<std::string>& arguments);

// Starts this program with the argument `stay`, which inherits the standard streams, and returns its id.
[[nodiscard]] std::uint32_t start_heir();

}  // namespace velmora::contract_child
