#include <unistd.h>

#include "platform/contract_child.h"

namespace velmora::contract_child {

std::uint32_t start_heir() {
  const pid_t child = fork();
  if (child == 0) _exit(run({"stay"}));
  return static_cast<std::uint32_t>(child);
}

}  // namespace velmora::contract_child

int main(int argument_count, char** arguments) {
  return velmora::contract_child::run({arguments + 1, arguments + argument_count});
}
