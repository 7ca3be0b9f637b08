// Which worker of a pool is woken when: at most one at a time is on its way to a task.
// A queue that wakes a sleeper for every task wakes most of them for nothing, since
// who is awake has taken the task before they come.
//
// No task waits while a worker sleeps unless another is on its way: whoever begins a
// task while more wait calls the next.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <optional>

#include "util/mutex.h"

namespace zarn {

/// All operations may be called from any thread.
class WorkerCalls {
 public:
  /// The compiler's run-time on Windows gives a mutex its memory when it is first locked,
  /// and a worker that cannot have it could tell nobody: here the pool's maker can.
  WorkerCalls() { const MutexLock lock(mutex_); }

  /// Before a task is put into the queue.
  void announce() noexcept { ++waiting_; }
  /// It could not be.
  void withdraw() noexcept { --waiting_; }
  /// After it was.
  void call() ZARN_EXCLUDES(mutex_);

  /// By the worker that took a task out of the queue, before it runs it.
  void begin() ZARN_EXCLUDES(mutex_);

  /// By a worker that found the queue empty. Sleeps until it is called or a task waits;
  /// false when neither came within `limit`, or after close().
  [[nodiscard]] bool sleep(std::optional<std::chrono::milliseconds> limit) ZARN_EXCLUDES(mutex_);

  /// From here on nobody sleeps.
  void close() ZARN_EXCLUDES(mutex_);

 private:
  /// The calling worker, if it was called, has come: to a task, or to none.
  void arrive() noexcept;

  std::atomic<std::size_t> waiting_{0};   ///< announced and not begun
  std::atomic<std::size_t> sleepers_{0};  ///< changes under the mutex
  std::atomic<bool> isCalling_{false};    ///< a called worker is on its way
  Mutex mutex_;
  std::condition_variable wake_;
  bool isCalled_ ZARN_GUARDED_BY(mutex_) = false;  ///< taken by the first sleeper that sees it
  bool isClosed_ ZARN_GUARDED_BY(mutex_) = false;
};

}  // namespace zarn
