// The program's entry.
#include <string_view>
#include <vector>

#include "platform/machine.h"
#include "service/service.h"

int main(int argc, char** argv) {
  velmora::prepare_process();
  const std::vector<std::string_view> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  return static_cast<int>(velmora::run_program(arguments));
}
