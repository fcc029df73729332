#include "command/service_watch.h"

#include <optional>
#include <utility>

#include "base/version.h"
#include "command/banner.h"
#include "command/console_events.h"
#include "command/ending.h"
#include "command/open_page.h"
#include "command/run_folder.h"
#include "command/window.h"
#include "platform/clock.h"
#include "platform/machine.h"

namespace velmora {
namespace {

// How often the console and the stop request are looked at.
constexpr std::uint32_t look_period_ms = 250;

// The highest exit code of the service (service/exit_codes.h).
constexpr std::uint32_t last_service_code = 10;

constexpr std::string_view held_line =
    "A browser or another program holds the service, or the account service does not answer.\n"
    "The service ends as soon as they are done. Press Ctrl+C again to end it at once.\n"
    "If you are signed in, you then stay signed in at the account service until that session expires.\n";

WatchedEnd lost(std::string sentence) {
  return {static_cast<int>(CommandCode::service_lost), std::move(sentence)};
}

std::int64_t now_ms() { return steady_now_ns() / 1'000'000; }

class Watch {
 public:
  Watch(const ChildProcess& service, const HeldFile& run_file, const std::string& run_id, bool opens_page)
      : service_(service), run_file_(run_file), run_id_(run_id), opens_page_(opens_page) {}

  WatchedEnd run() {
    for (;;) {
      const ChildEvent event = wait_for_child(service_, look_period_ms);
      switch (event.kind) {
        case ChildEvent::Kind::output: relay(output_.take(event.bytes)); break;
        case ChildEvent::Kind::error_output: write_standard_error(errors_.take(event.bytes)); break;
        case ChildEvent::Kind::nothing: relay_rests(); break;
        case ChildEvent::Kind::ended: relay_rests(); return end_with(event.exit_code);
      }
      look();
    }
  }

 private:
  void relay_rests() {
    relay(output_.take_rest());
    write_standard_error(errors_.take_rest());
  }

  // Whoever reads the address may call another command at once, so the run file comes first.
  void relay(const std::string& lines) {
    if (lines.empty() || failure_.failed()) return;
    const std::optional<ServiceAddress> address = find_address(lines);
    if (address && !write_run(*address)) return;
    write_standard_output(lines);
    if (address && opens_page_) show_page(*address);
  }

  // A line may have been relayed in two pieces.
  std::optional<ServiceAddress> find_address(const std::string& lines) {
    if (is_known_) return std::nullopt;
    unfinished_ += lines;
    std::optional<ServiceAddress> address = find_banner_line(unfinished_);
    const bool is_over = lines.ends_with('\n') || unfinished_.size() > relayed_line_bytes;
    if (is_over) unfinished_.clear();
    return address;
  }

  RunRecord record_of(const ServiceAddress& address) const {
    return {std::string(application_version), address.port, run_id_, child_process_id(service_),
            address.token};
  }

  bool write_run(const ServiceAddress& address) {
    is_known_ = true;
    failure_ = write_run_record(run_file_, record_of(address));
    if (!failure_.failed()) return true;
    // No client has had the address, so there is nothing to release.
    static_cast<void>(end_child(service_));
    return false;
  }

  // Only a start in a window opens the page, so the remedy is for a person in that window.
  void show_page(const ServiceAddress& address) const {
    const Outcome opened = open_page(record_of(address));
    if (opened.failed()) write_standard_error(name_scripts(opened.sentence) + '\n');
  }

  void look() {
    EndingLook seen{now_ms(), console_events, std::nullopt};
    if (!last_look_ms_ || seen.now_ms - *last_look_ms_ >= look_period_ms) {
      last_look_ms_ = seen.now_ms;
      seen.request = take_stop_request(run_id_);
    }
    switch (ending_.next(seen)) {
      case EndingStep::none: break;
      case EndingStep::interrupt: interrupt(); break;
      case EndingStep::say_held: write_standard_error(held_line); break;
      case EndingStep::end_at_once: static_cast<void>(end_child(service_)); break;
    }
  }

  // A console that is just being made cannot be joined yet. If each attempt fails, the service counts as
  // held, and can be ended at once.
  void interrupt() const {
    constexpr int attempts = 3;
    constexpr std::uint32_t pause_ms = 200;
    for (int attempt = 1; attempt <= attempts; ++attempt) {
      if (interrupt_by_helper(child_process_id(service_))) return;
      sleep_ms(pause_ms);
    }
  }

  // Whoever kills a process chooses its exit code, which then means nothing: Task Manager takes 1. Only a
  // service that cannot start has codes for its reasons, and says them itself. With 0 it has ended cleanly,
  // whoever asked it: a Ctrl+C or the system's shutdown may have reached it without us.
  WatchedEnd end_with(std::uint32_t exit_code) const {
    if (failure_.failed()) return {static_cast<int>(failure_.code), failure_.sentence};
    const bool was_asked = ending_.was_asked() || console_events > 0;
    const bool is_cut_short = was_asked && is_known_ && exit_code != 0;
    if (ending_.was_forced() || is_cut_short) {
      return lost(
          "The service was ended at once: if you were signed in, you stay signed in at the account service "
          "until that session expires.");
    }
    const bool says_why = !is_known_ && exit_code <= last_service_code;
    if (exit_code == 0 || says_why || was_asked) return {static_cast<int>(exit_code), {}};
    return lost("The service has ended unexpectedly (code " + std::to_string(exit_code) +
                "): start it again with velmora start.");
  }

  const ChildProcess& service_;
  const HeldFile& run_file_;
  const std::string& run_id_;
  bool opens_page_;
  LineRelay output_;
  LineRelay errors_;
  std::string unfinished_;  // of the line that was relayed before its end
  bool is_known_ = false;
  Outcome failure_;
  Ending ending_;
  std::optional<std::int64_t> last_look_ms_;
};

}  // namespace

WatchedEnd watch_service(const ChildProcess& service, const HeldFile& run_file, const std::string& run_id,
                         bool opens_page) {
  return Watch(service, run_file, run_id, opens_page).run();
}

bool interrupt_by_helper(std::uint32_t process_id) {
  constexpr std::uint32_t limit_ms = 5000;
  ChildProcess helper;
  if (start_child(own_module_path(), {"interrupt", std::to_string(process_id)}, helper) != 0) return false;
  const std::int64_t deadline_ms = now_ms() + limit_ms;
  while (now_ms() < deadline_ms) {
    const ChildEvent event = wait_for_child(helper, look_period_ms);
    if (event.kind == ChildEvent::Kind::ended) return event.exit_code == 0;
  }
  return false;
}

}  // namespace velmora
