#include "command/open_page.h"

#include <cstdint>

#include "command/client.h"
#include "command/run_folder.h"
#include "platform/machine.h"

namespace velmora {

Outcome open_page(const RunRecord& run) {
  constexpr std::intptr_t max_failure = 32;  // ShellExecuteW, shellapi.h
  std::string body;
  Outcome answered = ask_service(run, "/api/v1/status", body);
  if (answered.failed()) return answered;
  const std::int32_t com = start_com();
  const std::intptr_t result = open_in_browser(page_address(run));
  if (com >= 0) stop_com();
  if (result > max_failure) return {};
  return {CommandCode::no_browser,
          "The browser cannot be opened: copy the address from the window in which Velmora runs into one."};
}

Outcome open_running_page() {
  constexpr std::int64_t start_ms = 10'000;
  const RunState state = find_run(start_ms);
  return state.outcome.failed() ? state.outcome : open_page(*state.run);
}

}  // namespace velmora
