// How `start` ends the service that it runs: what to do next, decided on records. Pure.
#pragma once

#include <cstdint>
#include <optional>

#include "command/run_file.h"

namespace velmora {

// How long a service may take to end before it counts as held by a client.
inline constexpr std::int64_t clean_end_ms = 5000;

enum class EndingStep {
  none,
  interrupt,    // send Ctrl+C to the service
  say_held,     // say that a client holds the service, and what ends it at once
  end_at_once,  // the account session is then not released
};

// One look at everything that can ask for the end.
struct EndingLook {
  std::int64_t now_ms = 0;
  unsigned console_events = 0;         // since the start
  std::optional<StopRequest> request;  // a new one, of this run
};

// The first console event or stop request interrupts the service, once. If it still runs after clean_end_ms,
// that is said once, and from then on a further console event ends it at once. A stop request with force does
// so at any time.
class Ending {
 public:
  [[nodiscard]] EndingStep next(const EndingLook& look);
  // Whether the service was asked to end.
  [[nodiscard]] bool was_asked() const { return interrupted_ms_.has_value(); }
  // Whether the service was ended at once.
  [[nodiscard]] bool was_forced() const { return is_forced_; }

 private:
  std::optional<std::int64_t> interrupted_ms_;
  std::optional<unsigned> events_when_said_;
  bool is_forced_ = false;
};

}  // namespace velmora
