// The program's entry.
#include <string_view>
#include <vector>

#include "command/command.h"
#include "platform/machine.h"

int main(int argc, char** argv) {
  velmora::prepare_process();
  const std::vector<std::string_view> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  return velmora::run_command(arguments);
}
