// Takes events from any thread and has a thread of its own hand them to the system, which
// may be slow: whoever reports waits for nothing but a short lock.
#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "log/event_rates.h"
#include "util/events.h"
#include "util/mutex.h"

namespace zarn {

/// Puts an event where administrators find it. Called on the reporter's thread only; may
/// block, and what it throws costs the event.
class EventWriter {
 public:
  virtual void write(const EventFacts& event, std::span<const std::string> insertions) = 0;

 protected:
  ~EventWriter() = default;
};

/// No more characters than these of a text are inserted, and of one with many characters
/// that must be escaped no more than twice as many. With a dozen texts an event stays
/// below the 61,440 bytes that the system takes.
inline constexpr std::size_t kLongestInsertion = 1024;

/// `text` fit to be inserted: cut, printable, without secrets, on one line, "-" when empty.
/// A percent sign is escaped as control characters are, since viewers read it, with what
/// follows, as a place for another text.
[[nodiscard]] std::string insertionText(std::string_view text);

/// What is reported beyond kMostWaiting events that the writer has not had yet, beyond its
/// rate, or without memory is not written but counted, and an EventsOmitted says how many
/// there were: when the minute is over, or at a flush.
class EventReporter final : public EventSink {
 public:
  static constexpr std::size_t kMostWaiting = 32;

  /// `writer` must outlive it. The thread is made with the first event.
  explicit EventReporter(EventWriter& writer) : writer_(writer) {}
  EventReporter(const EventReporter&) = delete;
  EventReporter& operator=(const EventReporter&) = delete;
  /// Waits for the event that is being written; what waits is dropped.
  ~EventReporter();

  void take(EventId id, std::span<const std::string_view> insertions) noexcept override ZARN_EXCLUDES(mutex_);
  bool flush(std::chrono::milliseconds limit) noexcept override ZARN_EXCLUDES(mutex_);

 private:
  struct Event {
    EventId id;
    std::vector<std::string> insertions;
  };

  bool admit(EventId id) ZARN_EXCLUDES(mutex_);
  void push(Event event) ZARN_EXCLUDES(mutex_);
  void wakeThread() ZARN_REQUIRES(mutex_);
  void run() noexcept ZARN_EXCLUDES(mutex_);
  std::optional<Event> waitForNext() ZARN_EXCLUDES(mutex_);
  std::optional<Event> takeNext(EventRates::Time now) ZARN_REQUIRES(mutex_);

  EventWriter& writer_;
  Mutex mutex_;  ///< never held while anything is written
  os::Condition work_;
  os::Condition drained_;
  EventRates rates_ ZARN_GUARDED_BY(mutex_);
  std::deque<Event> waiting_ ZARN_GUARDED_BY(mutex_);
  std::thread thread_ ZARN_GUARDED_BY(mutex_);
  bool isFlushing_ ZARN_GUARDED_BY(mutex_) = false;
  bool isStopping_ ZARN_GUARDED_BY(mutex_) = false;
};

}  // namespace zarn
