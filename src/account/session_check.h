// Checks in the background whether the session still belongs to this machine, and releases it at the end.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace velmora {

struct SessionCheckResult {
  bool completed = false;                // the account service answered with 200
  bool active = false;                   // the session still belongs to this machine
  std::uint32_t next_check_seconds = 0;  // the interval the service asks for; 0: none given
  std::string detail;                    // the text from the service; unused
};

// Asks the account service and waits for the reply. Without a hash or a token it sends nothing, and the
// result is not completed.
[[nodiscard]] SessionCheckResult account_session_check(std::string_view service_url,
                                                       std::string_view account_hash, std::string_view token);

// Releases the session and waits for the reply, which is ignored. Without a hash or a token it sends nothing.
void account_session_release(std::string_view service_url, std::string_view account_hash,
                             std::string_view token);

// The state shared by the loop and the session-check thread, which may outlive the loop.
struct SessionCheckCells {
  std::atomic<bool> session_check_running{false};  // a check is running; at most one
  std::atomic<bool> session_superseded{false};     // the session is no longer active; the loop resets it
  std::atomic<std::uint32_t> session_check_interval{120};  // seconds
};

// Starts a check on a detached thread. Returns false, with nothing started, while another check is running.
bool start_session_check(std::shared_ptr<SessionCheckCells> cells, std::string service_url,
                         std::string account_hash, std::string token);

}  // namespace velmora
