#include "account/session_check.h"

#include <thread>
#include <utility>

#include "account/transport.h"
#include "account/wire.h"

namespace velmora {
namespace {

constexpr std::uint32_t status_ok = 200;

void check_session(SessionCheckCells& cells, const std::string& service_url, const std::string& account_hash,
                   const std::string& token) {
  const SessionCheckResult result = account_session_check(service_url, account_hash, token);
  if (result.completed && !result.active) cells.session_superseded = true;
  if (result.completed && result.next_check_seconds != 0) {
    cells.session_check_interval = result.next_check_seconds;
  }
  cells.session_check_running = false;
}

}  // namespace

SessionCheckResult account_session_check(std::string_view service_url, std::string_view account_hash,
                                         std::string_view token) {
  SessionCheckResult result;
  if (token.empty() || account_hash.empty()) return result;
  const AccountReply reply =
      account_request(service_url, "POST", "/api/v1/session/check",
                      account_body({{"account_hash", account_hash}, {"token", token}}));
  if (!reply.ok || reply.status != status_ok) return result;
  result.completed = true;
  // Only these exact bytes end a session: even one blank among them prevents it.
  result.active = reply.body.find("\"active\":false") == std::string::npos;
  result.detail = account_json_string(reply.body, "detail").value_or("");
  result.next_check_seconds = account_json_uint(reply.body, "next_check_seconds").value_or(0);
  return result;
}

void account_session_release(std::string_view service_url, std::string_view account_hash,
                             std::string_view token) {
  if (token.empty() || account_hash.empty()) return;
  static_cast<void>(account_request(service_url, "POST", "/api/v1/session/release",
                                    account_body({{"account_hash", account_hash}, {"token", token}})));
}

bool start_session_check(std::shared_ptr<SessionCheckCells> cells, std::string service_url,
                         std::string account_hash, std::string token) {
  if (cells->session_check_running.exchange(true)) return false;
  // Start the check only after its thread is detached. In the thread library of our compiler for Windows, a
  // thread that ends while it is being detached corrupts the list of threads. Then either may wait forever.
  const auto detached = std::make_shared<std::atomic<bool>>(false);
  std::thread([detached, cells = std::move(cells), service_url = std::move(service_url),
               account_hash = std::move(account_hash), token = std::move(token)] {
    while (!*detached) std::this_thread::yield();
    check_session(*cells, service_url, account_hash, token);
  }).detach();
  *detached = true;
  return true;
}

}  // namespace velmora
