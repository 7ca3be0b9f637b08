// The lines that wait for the writer thread: any number of producers, one
// consumer, first in, first out.
//
// The queue is bounded. Callers write lines faster than a disk that stands still
// takes them, and the service must neither wait for that disk nor die of the memory:
// what finds no room is lost, and the next line that finds some is preceded by one
// that says how many were.
//
// Who wakes whom: producers wake the writer, but only one that sleeps, and only the first
// of them; flush() and stop() wake it always. The writer wakes all who wait in flush()
// and waitForWriter(), since each waits for something of its own.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "log/log_line.h"
#include "util/mutex.h"

namespace zarn {

/// What waits and what the writer has taken and not yet written: items and the memory of
/// their messages.
inline constexpr std::size_t kMaximumQueueBytes = std::size_t{64} * 1024 * 1024;

class LogQueue {
 public:
  /// What the writer has taken at one go. Items are reused, with their memory.
  class Batch {
   public:
    [[nodiscard]] std::span<LogItem> items() noexcept { return {slots_.data(), count_}; }

   private:
    friend class LogQueue;
    std::vector<LogItem> slots_;
    std::size_t count_ = 0;  ///< the first so many slots hold items
    std::size_t bytes_ = 0;  ///< of the items, as they count for the bound
  };

  LogQueue() = default;
  LogQueue(const LogQueue&) = delete;
  LogQueue& operator=(const LogQueue&) = delete;

  /// Copies prefix and message into one text. Without room or memory for it the line
  /// is lost, and counted. While stopping, it is dropped without notice.
  void push(const LogStamp& stamp, std::string_view prefix, std::string_view message) noexcept
      ZARN_EXCLUDES(mutex_);

  /// Counts a line that was lost before it came here.
  void countLost() noexcept { lost_.fetch_add(1, std::memory_order_relaxed); }

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

  void tryPush(const LogStamp& stamp, std::string_view prefix, std::string_view message)
      ZARN_EXCLUDES(mutex_);
  [[nodiscard]] bool hasRoomFor(std::size_t bytes) const ZARN_REQUIRES(mutex_);
  LogItem& nextItem(const LogStamp& stamp) ZARN_REQUIRES(mutex_);
  void keepItem(const LogItem& item) ZARN_REQUIRES(mutex_);
  void waitForWork(Lock& lock) ZARN_REQUIRES(mutex_);
  /// A wait for the writer. May end early; false when `end` has come.
  bool waitForNews(Lock& lock, Clock::time_point end) ZARN_REQUIRES(mutex_);
  void answerFlushes(std::uint64_t upTo) ZARN_REQUIRES(mutex_);

  Mutex mutex_;
  os::Condition work_;     ///< an item came, somebody flushes, or stopping
  os::Condition drained_;  ///< flushes were answered, or the writer finished
  Batch waiting_ ZARN_GUARDED_BY(mutex_);
  std::size_t takenBytes_ ZARN_GUARDED_BY(mutex_) = 0;  ///< of the batch that is being written
  bool writerSleeps_ ZARN_GUARDED_BY(mutex_) = false;   ///< nobody has woken it yet
  bool writerFinished_ ZARN_GUARDED_BY(mutex_) = false;
  int pollsLeft_ ZARN_GUARDED_BY(mutex_) = 0;  ///< until the writer may sleep
  // Flushes are numbered. Those asked for when the writer took its batch are answered when
  // it comes for the next one, for then all that was pushed before them is written; when
  // it finds nothing to take, all are.
  std::uint64_t flushesAsked_ ZARN_GUARDED_BY(mutex_) = 0;
  std::uint64_t flushesTaken_ ZARN_GUARDED_BY(mutex_) = 0;  ///< asked when it last took items
  std::uint64_t flushesAnswered_ ZARN_GUARDED_BY(mutex_) = 0;
  std::atomic<bool> stopping_{false};
  // Lines lost and not yet told. Grows without the lock; only a push that tells takes off it.
  std::atomic<std::uint64_t> lost_{0};
};

}  // namespace zarn
