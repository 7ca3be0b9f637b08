// The workers of a pool that have nothing to do, and which of them is woken when: at most
// one at a time is on its way to a task. A queue that wakes a sleeper for every task wakes
// most of them for nothing, since who is awake has taken the task before they come.
//
// No task waits while a worker sleeps unless another is on its way: whoever begins a task
// while more wait wakes the next.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <optional>

#include "util/mutex.h"

namespace zarn {

/// All operations may be called from any thread.
class IdleWorkers {
 public:
  // By whoever posts a task: the first before it is put into the queue, and then one of the
  // others.

  void taskComes() noexcept { ++waitingTasks_; }
  void taskQueued() ZARN_EXCLUDES(mutex_) { wakeOne(); }
  void taskWithdrawn() noexcept { --waitingTasks_; }

  /// By the worker that took a task out of the queue, before it runs it.
  void taskTaken() ZARN_EXCLUDES(mutex_);

  /// By a worker that found the queue empty. Sleeps until it is woken or a task waits;
  /// false when neither came within `limit`, or after close().
  [[nodiscard]] bool sleep(std::optional<std::chrono::milliseconds> limit) ZARN_EXCLUDES(mutex_);

  /// From here on nobody sleeps.
  void close() ZARN_EXCLUDES(mutex_);

 private:
  void wakeOne() ZARN_EXCLUDES(mutex_);
  /// The calling worker, if it was woken, has come: to a task, or to none.
  void arrive() noexcept;

  // The counters are read without the mutex, which a post would else have to take for every
  // task. Posters raise the first, and workers lower it. Workers alone change the second.
  std::atomic<std::size_t> waitingTasks_{0};  ///< announced and not taken
  std::atomic<std::size_t> sleepers_{0};      ///< changes under the mutex
  /// A woken worker is on its way. Set by whoever wakes it, cleared by the worker itself.
  std::atomic<bool> isOneOnItsWay_{false};
  Mutex mutex_;
  os::Condition wake_;
  bool isWoken_ ZARN_GUARDED_BY(mutex_) = false;  ///< taken by the first sleeper that sees it
  bool isClosed_ ZARN_GUARDED_BY(mutex_) = false;
};

}  // namespace zarn
