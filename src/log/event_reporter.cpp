#include "log/event_reporter.h"

#include <new>
#include <utility>

#include "log/token_scrubber.h"
#include "os/process.h"
#include "util/exceptions.h"
#include "util/printable.h"

namespace zarn {
namespace {

using EventClock = std::chrono::steady_clock;

std::string withoutPercents(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == '%') {
      result += "\\x25";
    } else {
      result += c;
    }
  }
  return result;
}

}  // namespace

std::string insertionText(std::string_view text) {
  if (text.empty()) return "-";
  std::string shown = printable(cutText(text, kLongestInsertion));
  // Before anything else changes the text: a marker may have a percent sign.
  scrubTokens(shown, false);
  return cutText(withoutPercents(shown), 2 * kLongestInsertion);
}

EventReporter::~EventReporter() {
  std::thread thread;
  {
    const MutexLock lock(mutex_);
    isStopping_ = true;
    thread.swap(thread_);
    work_.notify_one();
  }
  if (thread.joinable()) thread.join();
}

void EventReporter::take(EventId id, std::span<const std::string_view> insertions) noexcept {
  quietly([&] {
    // First, so that those of a flood cost no more than this.
    if (!admit(id)) return;
    try {
      Event event{id, {}};
      event.insertions.reserve(insertions.size());
      for (const std::string_view text : insertions) event.insertions.push_back(insertionText(text));
      push(std::move(event));
    } catch (const std::bad_alloc&) {
      const MutexLock lock(mutex_);
      rates_.omit(id);
    }
  });
}

bool EventReporter::admit(EventId id) {
  const MutexLock lock(mutex_);
  if (rates_.admit(id, EventClock::now())) return true;
  wakeThread();  // which now has a minute's end to wait for
  return false;
}

void EventReporter::push(Event event) {
  const MutexLock lock(mutex_);
  if (waiting_.size() < kMostWaiting) {
    waiting_.push_back(std::move(event));
  } else {
    rates_.omit(event.id);
  }
  wakeThread();
}

void EventReporter::wakeThread() {
  if (!thread_.joinable()) thread_ = std::thread(&EventReporter::run, this);
  work_.notify_one();
}

bool EventReporter::flush(std::chrono::milliseconds limit) noexcept {
  bool isDrained = false;
  quietly([&] {
    MutexLock lock(mutex_);
    if (!thread_.joinable()) {
      isDrained = waiting_.empty();
      return;
    }
    isFlushing_ = true;
    work_.notify_one();
    const auto end = EventClock::now() + limit;
    for (auto now = EventClock::now(); isFlushing_ && now < end; now = EventClock::now()) {
      lock.waitFor(drained_, end - now);
    }
    isDrained = !isFlushing_;
  });
  return isDrained;
}

// ---- The thread ------------------------------------------------------------------

void EventReporter::run() noexcept {
  setCurrentThreadName("events");
  std::optional<Event> event;
  const auto next = [&] {
    event.reset();
    quietly([&] { event = waitForNext(); });
    return event.has_value();
  };
  while (next()) {
    quietly([&] { writer_.write(factsOf(event->id), event->insertions); });
  }
}

/// Nothing once the reporter ends.
std::optional<EventReporter::Event> EventReporter::waitForNext() {
  MutexLock lock(mutex_);
  while (!isStopping_) {
    const auto now = EventClock::now();
    try {
      if (auto next = takeNext(now)) return next;
    } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): costs the event
    }
    isFlushing_ = false;
    drained_.notify_all();
    if (const auto due = rates_.nextDue()) {
      lock.waitFor(work_, *due - now);
    } else {
      lock.wait(work_);
    }
  }
  return std::nullopt;
}

std::optional<EventReporter::Event> EventReporter::takeNext(EventRates::Time now) {
  if (!waiting_.empty()) {
    Event next = std::move(waiting_.front());
    waiting_.pop_front();
    return next;
  }
  // Made first: once the number is taken it is nowhere else. Texts of so few digits need no
  // memory of their own.
  Event event{EventId::EventsOmitted, std::vector<std::string>(2)};
  const auto omitted = rates_.takeOmitted(now, isFlushing_);
  if (!omitted) return std::nullopt;
  event.insertions[0] = std::to_string(omitted->number);
  event.insertions[1] = std::to_string(static_cast<unsigned>(omitted->id));
  return event;
}

}  // namespace zarn
