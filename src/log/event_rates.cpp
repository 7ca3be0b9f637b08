#include "log/event_rates.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace zarn {

EventRates::Window& EventRates::windowOf(EventId id) noexcept {
  return windows_[static_cast<std::size_t>(&factsOf(id) - kEvents.data())];
}

bool EventRates::admit(EventId id, Time now) noexcept {
  Window& window = windowOf(id);
  if (now >= window.end) {
    window.end = now + kWindow;
    window.admitted = 0;
  }
  if (window.admitted < factsOf(id).perMinute) {
    ++window.admitted;
    return true;
  }
  ++window.omitted;
  return false;
}

void EventRates::omit(EventId id) noexcept {
  ++windowOf(id).omitted;
}

std::optional<EventRates::Omitted> EventRates::takeOmitted(Time now, bool atOnce) noexcept {
  for (std::size_t i = 0; i < windows_.size(); ++i) {
    Window& window = windows_[i];
    if (window.omitted == 0 || (!atOnce && now < window.end)) continue;
    return Omitted{kEvents[i].id, std::exchange(window.omitted, 0)};
  }
  return std::nullopt;
}

std::optional<EventRates::Time> EventRates::nextDue() const noexcept {
  std::optional<Time> due;
  for (const Window& window : windows_) {
    if (window.omitted != 0) due = std::min(due.value_or(window.end), window.end);
  }
  return due;
}

}  // namespace zarn
