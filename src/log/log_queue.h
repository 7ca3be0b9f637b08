// The lines that wait for the writer thread: any number of producers, one
// consumer, first in, first out.
//
// The queue has no bound. A full one could only stop the service's threads
// until the disk answers or lose lines, and both are worse than the memory that
// the few lines of an install take.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "log/log_item.h"
#include "util/mutex.h"

namespace zarn {

class LogQueue {
 public:
  /// What the writer has taken at one go. Items are reused, with their memory.
  class Batch {
   public:
    [[nodiscard]] std::span<LogItem> items() noexcept { return {slots_.data(), count_}; }

   private:
    friend class LogQueue;
    std::vector<LogItem> slots_;
    std::size_t count_ = 0;
  };

  LogQueue() = default;
  LogQueue(const LogQueue&) = delete;
  LogQueue& operator=(const LogQueue&) = delete;

  /// Copies prefix and message into one text. While stopping, it is dropped without notice.
  void push(const LogStamp& stamp, std::string_view prefix, std::string_view message) ZARN_EXCLUDES(mutex_);

  using Clock = std::chrono::steady_clock;

  /// Returns when every item pushed before is written or the writer has finished:
  /// true. False when neither has come by `end`. Not for the writer's thread.
  bool flush(Clock::time_point end) ZARN_EXCLUDES(mutex_);

  /// From here on nothing is pushed or taken; the writer wakes up.
  void stop() ZARN_EXCLUDES(mutex_);
  /// Returns when the writer has finished: true, or at `end`.
  bool waitForWriter(Clock::time_point end) ZARN_EXCLUDES(mutex_);
  [[nodiscard]] bool isStopping() const noexcept { return stopping_.load(std::memory_order_acquire); }

  // ---- The writer's side ----

  /// Waits for items and replaces `batch` by all that are there. The items of
  /// the batch before count as written. False when stopping.
  [[nodiscard]] bool take(Batch& batch) ZARN_EXCLUDES(mutex_);

  /// The writer ends: nobody waits for it any longer.
  void finish() ZARN_EXCLUDES(mutex_);

 private:
  using Lock = MutexLock<Mutex>;

  void waitForWork(Lock& lock) ZARN_REQUIRES(mutex_);
  /// A wait for the writer. May end early; false when `end` has come.
  bool waitForNews(Lock& lock, Clock::time_point end) ZARN_REQUIRES(mutex_);
  void answerFlushes(std::uint64_t upTo) ZARN_REQUIRES(mutex_);

  Mutex mutex_;
  std::condition_variable work_;     ///< an item came, somebody flushes, or stopping
  std::condition_variable drained_;  ///< flushes were answered, or the writer finished
  Batch waiting_ ZARN_GUARDED_BY(mutex_);
  bool writerSleeps_ ZARN_GUARDED_BY(mutex_) = false;
  bool finished_ ZARN_GUARDED_BY(mutex_) = false;
  int pollsLeft_ ZARN_GUARDED_BY(mutex_) = 0;
  // Flushes are numbered: asked for, asked for when the writer last took items, answered.
  std::uint64_t flushesAsked_ ZARN_GUARDED_BY(mutex_) = 0;
  std::uint64_t flushesTaken_ ZARN_GUARDED_BY(mutex_) = 0;
  std::uint64_t flushesAnswered_ ZARN_GUARDED_BY(mutex_) = 0;
  std::atomic<bool> stopping_{false};
};

}  // namespace zarn
