#include "update/bounded_listener.h"

#include <exception>
#include <optional>
#include <thread>
#include <utility>

#include "os/process.h"
#include "util/logging.h"
#include "util/mutex.h"

namespace zarn {

using std::chrono::milliseconds;

namespace {

constexpr int kStopTries = 100;
constexpr milliseconds kStopRetry{20};

}  // namespace

/// Shared with the threads that may be left behind.
struct BoundedListener::State {
  struct Answers {
    std::optional<std::uint32_t> listened;
    std::optional<std::uint32_t> stopped;
    bool isStopAsked = false;
    bool hasStopSucceeded = false;
  };
  using Answer = std::optional<std::uint32_t> Answers::*;

  State(ListenerCalls given, milliseconds limit) : calls(std::move(given)), waitLimit(limit) {}

  void keep(Answer answer, std::uint32_t status) ZARN_EXCLUDES(mutex) {
    const MutexLock lock(mutex);
    answers.*answer = status;
    changed.notify_all();
  }

  /// The service counts as running a moment before it listens. A stop that comes in between
  /// would be the last one that the control manager sends, so it is tried again until it
  /// has an effect, or listening is over without it.
  std::uint32_t stopListening() ZARN_EXCLUDES(mutex) {
    std::uint32_t status = calls.stopListening();
    for (int tries = 0; status == kNotListening && !isOver() && tries < kStopTries; ++tries) {
      std::this_thread::sleep_for(kStopRetry);
      status = calls.stopListening();
    }
    const MutexLock lock(mutex);
    if (status == 0) answers.hasStopSucceeded = true;
    return status;
  }

  bool isOver() ZARN_EXCLUDES(mutex) {
    const MutexLock lock(mutex);
    return answers.listened.has_value() || answers.hasStopSucceeded;
  }

  /// Nothing when the limit passed first.
  std::optional<std::uint32_t> await(Answer answer) ZARN_EXCLUDES(mutex) {
    const auto deadline = std::chrono::steady_clock::now() + waitLimit;
    MutexLock lock(mutex);
    while (!(answers.*answer)) {
      const auto left = deadline - std::chrono::steady_clock::now();
      if (left <= left.zero()) break;
      lock.waitFor(changed, left);
    }
    return answers.*answer;
  }

  const ListenerCalls calls;
  const milliseconds waitLimit;
  Mutex mutex;
  os::Condition changed;
  Answers answers ZARN_GUARDED_BY(mutex);
};

namespace {

/// On a thread that nobody waits for; on this one when the system gives none.
template <typename Work>
void begin(Work work) {
  try {
    os::startUnawaited(work);
  } catch (const std::exception&) {
    work();
  }
}

}  // namespace

BoundedListener::BoundedListener(ListenerCalls calls, milliseconds limit)
    : state_(std::make_shared<State>(std::move(calls), limit)) {}

std::uint32_t BoundedListener::run() {
  const auto state = state_;
  begin([state] { state->keep(&State::Answers::listened, state->calls.listen()); });
  {
    MutexLock lock(state->mutex);
    while (!state->answers.listened && !state->answers.isStopAsked) lock.wait(state->changed);
  }
  // What runs has bounds of its own; the last one is for those that fail.
  const auto latest = std::chrono::steady_clock::now() + kLongestWork;
  while (!state->calls.waitUntilIdle(state->waitLimit) && std::chrono::steady_clock::now() < latest) {
  }
  const auto status = state->await(&State::Answers::listened);
  if (!status) logLine(LogLevel::Error, "The listener did not end in time; the service ends without it.");
  return status.value_or(0);
}

std::uint32_t BoundedListener::stop() {
  const auto state = state_;
  {
    const MutexLock lock(state->mutex);
    state->answers.isStopAsked = true;
    state->answers.stopped.reset();
    state->changed.notify_all();
  }
  begin([state] { state->keep(&State::Answers::stopped, state->stopListening()); });
  return state->await(&State::Answers::stopped).value_or(kTimedOut);
}

}  // namespace zarn
