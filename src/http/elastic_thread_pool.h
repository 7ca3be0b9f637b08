// A pool of threads that grows when tasks arrive faster than idle workers can
// take them, and shrinks when workers stay idle.
#pragma once

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/thread/thread.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "http/idle_workers.h"
#include "util/mutex.h"

namespace zarn {

/// All operations may be called from any thread.
class ElasticThreadPool {
 public:
  using Task = std::function<void()>;

  static constexpr std::chrono::milliseconds kIdleTime{10'000};

  /// Idle workers do not leave below `lowerBound`; none is added above `maxThreads`.
  /// The other two are for tests: `beforeThreadStart` is called before each thread
  /// is made, and what it throws counts as the system's refusal to make one.
  ElasticThreadPool(std::size_t lowerBound, std::size_t maxThreads,
                    std::chrono::milliseconds idleTime = kIdleTime, Task beforeThreadStart = {});
  ElasticThreadPool(const ElasticThreadPool&) = delete;
  ElasticThreadPool& operator=(const ElasticThreadPool&) = delete;
  /// Finishes every task that was posted and joins all workers. Not to be called by one.
  ~ElasticThreadPool();  // NOLINT(bugprone-exception-escape)

  /// Makes the workers up to the lower bound, of which none ever leaves: every task
  /// posted from then on has somebody to run it. Throws std::runtime_error when the
  /// system makes no thread.
  void makeLowerBound() ZARN_EXCLUDES(mutex_);

  /// Runs `task` on a worker, some time. What it throws is logged. Throws
  /// std::bad_alloc only.
  void post(Task task);

  [[nodiscard]] std::size_t threadCount() const noexcept { return threadCount_; }

 private:
  void growIfNeeded(std::size_t demand) ZARN_EXCLUDES(mutex_);
  void addWorker() ZARN_REQUIRES(mutex_);
  void work();
  /// Whether an idle worker stays in a pool of `threads`.
  [[nodiscard]] bool mustStay(std::size_t threads) const noexcept;
  /// Takes the calling worker out of the pool, if it may still leave.
  bool leave() ZARN_EXCLUDES(mutex_);
  void joinWorkers() ZARN_EXCLUDES(mutex_);
  void runTask(const Task& task, std::uint32_t poster) noexcept;

  const std::size_t lowerBound_;
  const std::size_t maxThreads_;
  const std::chrono::milliseconds idleTime_;
  const Task beforeThreadStart_;

  std::shared_ptr<boost::asio::io_context> workQueue_;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> keepOpen_;
  IdleWorkers idle_;
  Mutex mutex_;
  // Every decision to add a worker, or to let one go, is taken under the mutex. Outside it
  // the counters are read to see whether there is anything to decide.
  std::atomic<std::size_t> outstanding_{0};  ///< posted and not finished
  std::atomic<std::size_t> threadCount_{0};  ///< changes under the mutex
  std::atomic<bool> inService_{true};        ///< until the destructor begins
  std::map<boost::thread::id, boost::thread> workers_ ZARN_GUARDED_BY(mutex_);
  /// The worker that left last: it cannot join itself, so the next one to leave, or
  /// the destructor, does. At most one ended thread waits so, however many come and go.
  boost::thread departed_ ZARN_GUARDED_BY(mutex_);
};

}  // namespace zarn
