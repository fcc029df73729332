// The test service. A test registers it under a name, such as `Audiosrv`, and sets its behaviour; the service
// control manager then starts and stops it.
#include <windows.h>

#include <shellapi.h>

#include <cstdio>

#include "registration_windows.h"
#include "service_windows.h"

namespace velmora::service {
namespace {

constexpr int exit_done = 0;
constexpr int exit_refused = 1;
constexpr int exit_usage = 2;

std::vector<std::wstring> own_arguments() {
  int count = 0;
  LPWSTR* const words = CommandLineToArgvW(GetCommandLineW(), &count);
  if (words == nullptr) return {};
  std::vector<std::wstring> arguments(words + 1, words + count);
  LocalFree(words);
  return arguments;
}

int run() {
  const std::vector<std::wstring> arguments = own_arguments();
  const auto options = parse_options(arguments);
  if (!options) {
    std::fputs(usage, stderr);
    return exit_usage;
  }
  if (options->command == Command::run) return run_service(*options);
  const DWORD error =
      options->command == Command::install ? install(*options, arguments) : remove(options->name);
  if (error != NO_ERROR) std::fprintf(stderr, "the service manager refuses with error %lu\n", error);
  return error == NO_ERROR ? exit_done : exit_refused;
}

}  // namespace
}  // namespace velmora::service

int main() { return velmora::service::run(); }
