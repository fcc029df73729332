#include "service/loop.h"

#include "api/routes.h"
#include "platform/clock.h"
#include "platform/machine.h"
#include "service/console.h"

namespace velmora {
namespace {

constexpr std::int64_t ns_per_s = 1'000'000'000;

// When periodic work was last done, in nanoseconds of the steady clock.
struct LastDone {
  std::int64_t last_tick;
  std::int64_t last_check;
};

// Each tick discards the fraction of a second.
void count_usage(AccountSession& session, std::int64_t now_ns, LastDone& done) {
  if (now_ns - done.last_tick < tick_period_s * ns_per_s) return;
  add_usage(session, (now_ns - done.last_tick) / ns_per_s);
  done.last_tick = now_ns;
}

void sign_out_when_superseded(AccountState& account) {
  if (!account.check->session_superseded.exchange(false)) return;
  clear_session(account.session);
  write_standard_output("The account has signed in on another device. This machine is now signed out.\n");
}

// The interval runs from one decision to the next, whether or not a check is started.
void check_session(const AccountState& account, std::int64_t now_ns, LastDone& done) {
  if (now_ns - done.last_check < account.check->session_check_interval * ns_per_s) return;
  done.last_check = now_ns;
  const AccountSession& session = account.session;
  if (account.service_url.empty() || session.token.empty() || session.account_hash.empty()) return;
  start_session_check(account.check, account.service_url, session.account_hash, session.token);
}

void serve_one(const Socket& listener, ServiceState& state) {
  if (wait_readable(listener, select_timeout_us).count <= 0) return;
  Socket connection;
  if (accept_connection(listener, connection)) return;
  handle_connection(connection, state);
  shutdown_both(connection);
}

}  // namespace

void serve_until_stopped(const Socket& listener, ServiceState& state) {
  LastDone done{steady_now_ns(), steady_now_ns()};
  while (!stop_requested) {
    const std::int64_t now_ns = steady_now_ns();
    count_usage(state.account.session, now_ns, done);
    sign_out_when_superseded(state.account);
    check_session(state.account, now_ns, done);
    serve_one(listener, state);
  }
}

}  // namespace velmora
