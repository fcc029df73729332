#include "command/ending.h"

namespace velmora {

EndingStep Ending::next(const EndingLook& look) {
  if (is_forced_) return EndingStep::none;
  const bool is_pressed_again = events_when_said_ && look.console_events > *events_when_said_;
  if (is_pressed_again || (look.request && look.request->force)) {
    is_forced_ = true;
    return EndingStep::end_at_once;
  }
  if (!interrupted_ms_) {
    if (look.console_events == 0 && !look.request) return EndingStep::none;
    interrupted_ms_ = look.now_ms;
    return EndingStep::interrupt;
  }
  if (events_when_said_ || look.now_ms - *interrupted_ms_ < clean_end_ms) return EndingStep::none;
  events_when_said_ = look.console_events;
  return EndingStep::say_held;
}

}  // namespace velmora
