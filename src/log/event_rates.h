// How many events of each id are written: those of a flood are counted instead.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>

#include "util/events.h"

namespace zarn {

/// A minute of an id begins with the first event that finds none running. Not for two
/// threads at once. Times come from the caller and never go back.
class EventRates {
 public:
  using Time = std::chrono::steady_clock::time_point;
  static constexpr std::chrono::minutes kWindow{1};

  struct Omitted {
    EventId id;
    std::uint64_t number;
  };

  /// Whether an event of this id is written; else it is counted.
  bool admit(EventId id, Time now) noexcept;
  /// Counts one that was admitted and is not written after all.
  void omit(EventId id) noexcept;

  /// Events that were counted in a minute that is over, or, with `atOnce`, in any; each
  /// number is answered once.
  std::optional<Omitted> takeOmitted(Time now, bool atOnce) noexcept;
  /// When takeOmitted() has something to answer; nothing while nothing is counted.
  [[nodiscard]] std::optional<Time> nextDue() const noexcept;

 private:
  struct Window {
    Time end{};
    std::uint32_t admitted = 0;
    std::uint64_t omitted = 0;
  };
  [[nodiscard]] Window& windowOf(EventId id) noexcept;

  std::array<Window, kEvents.size()> windows_;  ///< in the order of kEvents
};

}  // namespace zarn
