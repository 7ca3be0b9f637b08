// An event sink that keeps events for a test to look at.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "util/events.h"
#include "util/mutex.h"

namespace zarn::testing {

/// Records every event, from any thread, while it lives; then puts the former sink back.
class RecordingEvents : public EventSink {
 public:
  RecordingEvents() : former_(setEventSink(this)) {}
  RecordingEvents(const RecordingEvents&) = delete;
  RecordingEvents& operator=(const RecordingEvents&) = delete;
  virtual ~RecordingEvents() { setEventSink(former_); }

  void take(EventId id, std::span<const std::string_view> insertions) noexcept override {
    const MutexLock lock(mutex_);
    std::string text = std::to_string(static_cast<unsigned>(id));
    for (const std::string_view insertion : insertions) text.append("|").append(insertion);
    texts_.push_back(text);
  }
  bool flush(std::chrono::milliseconds /*limit*/) noexcept override { return true; }

  /// What was recorded so far, each "id|insertion|insertion", and forgets it.
  [[nodiscard]] std::vector<std::string> take() {
    const MutexLock lock(mutex_);
    return std::exchange(texts_, {});
  }

 private:
  Mutex mutex_;
  std::vector<std::string> texts_ ZARN_GUARDED_BY(mutex_);
  EventSink* const former_;
};

}  // namespace zarn::testing
