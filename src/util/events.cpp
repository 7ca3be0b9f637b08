#include "util/events.h"

#include <atomic>

namespace zarn {
namespace {

std::atomic<EventSink*> currentEventSink{nullptr};

}  // namespace

EventSink* setEventSink(EventSink* sink) noexcept {
  return currentEventSink.exchange(sink, std::memory_order_acq_rel);
}

EventSink* eventSink() noexcept {
  return currentEventSink.load(std::memory_order_acquire);
}

void flushEvents(std::chrono::milliseconds limit) noexcept {
  if (EventSink* const sink = eventSink()) static_cast<void>(sink->flush(limit));
}

}  // namespace zarn
