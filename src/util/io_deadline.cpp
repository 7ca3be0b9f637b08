#include "util/io_deadline.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "os/process.h"
#include "util/exceptions.h"
#include "util/mutex.h"

namespace zarn {

/// One thread that looks after all armed deadlines. It sleeps until the next one is
/// due and, without any, for good; arming one that is due later than it wakes anyway
/// does not disturb it, so that a logger that arms one for every line wakes nobody.
class IoWatch {
 public:
  static IoWatch& instance() {
    static IoWatch& watch = *std::make_unique<IoWatch>().release();  // its thread ends with the process
    return watch;
  }

  void add(IoDeadline& deadline) ZARN_EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    if (!hasThread_) {
      os::startUnawaited([this] { watch(); });
      hasThread_ = true;
    }
    armed_.push_back(&deadline);
    deadline.renewalsSeen_ = deadline.renewals_.load(std::memory_order_relaxed);
    deadline.due_ = IoDeadline::Clock::now() + deadline.limit_;
    // Most deadlines are due later than one that is armed already: those wake nobody.
    const bool wake = deadline.due_ < wakesAt_;
    lock.unlock();
    if (wake) wake_.notify_one();
  }

  /// After this nothing of the thread is cancelled any more: cancelling happens under the mutex.
  void remove(const IoDeadline& deadline) ZARN_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    std::erase(armed_, &deadline);
  }

 private:
  using Clock = IoDeadline::Clock;
  /// A thread may begin another blocking operation after one was cancelled.
  static constexpr std::chrono::milliseconds kAgainAfter{50};
  static constexpr std::chrono::hours kLongest{1};

  [[noreturn]] void watch() ZARN_EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    for (;;) {
      const auto now = Clock::now();
      wakesAt_ = now + kLongest;
      for (IoDeadline* const deadline : armed_) {
        attend(*deadline, now);
        wakesAt_ = std::min(wakesAt_, deadline->due_);
      }
      if (armed_.empty()) {
        wakesAt_ = Clock::time_point::max();
        lock.wait(wake_);
      } else {
        lock.waitFor(wake_, wakesAt_ - now);
      }
    }
  }

  /// Renewing only counts up, so that it costs the thread nothing; whether it happened is
  /// found out here, which is why a limit may last up to twice as long.
  static void attend(IoDeadline& deadline, Clock::time_point now) {
    if (deadline.due_ > now) return;
    const std::uint32_t renewals = deadline.renewals_.load(std::memory_order_relaxed);
    if (renewals != deadline.renewalsSeen_) {
      deadline.renewalsSeen_ = renewals;
      deadline.due_ = now + deadline.limit_;
      return;
    }
    deadline.thread_.cancelIo();
    deadline.due_ = now + kAgainAfter;
  }

  Mutex mutex_;
  os::Condition wake_;
  std::vector<IoDeadline*> armed_ ZARN_GUARDED_BY(mutex_);
  bool hasThread_ ZARN_GUARDED_BY(mutex_) = false;
  Clock::time_point wakesAt_ ZARN_GUARDED_BY(mutex_) = Clock::time_point::max();
};

IoDeadline::IoDeadline(std::chrono::milliseconds limit) noexcept : limit_(limit) {
  arm();
}

// Without memory for its entry the deadline stays unarmed, and there is no limit.
void IoDeadline::arm() noexcept {
  if (isArmed_) return;
  quietly([this] {
    IoWatch::instance().add(*this);
    isArmed_ = true;
  });
}

void IoDeadline::disarm() noexcept {
  if (!isArmed_) return;
  isArmed_ = false;
  quietly([this] { IoWatch::instance().remove(*this); });
}

}  // namespace zarn
