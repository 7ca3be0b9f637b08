#include "http/idle_workers.h"

#include <utility>

namespace zarn {
namespace {

/// Of a worker from being woken until it arrives. A thread belongs to one pool.
thread_local bool thisWorkerIsWoken = false;

}  // namespace

void IdleWorkers::wakeOne() {
  // A worker counts itself among the sleepers before it looks for waiting tasks, and a
  // task counts as waiting before this: one of the two sees the other.
  if (sleepers_ == 0 || isOneOnItsWay_.exchange(true)) return;
  MutexLock lock(mutex_);
  if (sleepers_ == 0) {
    // The last one went to work meanwhile, and looks for more tasks before it sleeps again.
    isOneOnItsWay_ = false;
    return;
  }
  isWoken_ = true;
  lock.unlock();
  wake_.notify_one();
}

void IdleWorkers::arrive() noexcept {
  if (std::exchange(thisWorkerIsWoken, false)) isOneOnItsWay_ = false;
}

void IdleWorkers::taskTaken() {
  --waitingTasks_;
  // In this order: a post that still finds this worker on its way wakes nobody, and its
  // task is seen to wait here.
  arrive();
  if (waitingTasks_ > 0) wakeOne();
}

bool IdleWorkers::sleep(std::optional<std::chrono::milliseconds> limit) {
  using Clock = std::chrono::steady_clock;
  arrive();
  const auto deadline = Clock::now() + limit.value_or(std::chrono::milliseconds(0));
  MutexLock lock(mutex_);
  ++sleepers_;
  if (waitingTasks_ > 0) {
    --sleepers_;
    return true;
  }
  while (!isWoken_ && !isClosed_) {
    if (!limit) {
      lock.wait(wake_);
    } else if (const auto left = deadline - Clock::now(); left > Clock::duration::zero()) {
      lock.waitFor(wake_, left);
    } else {
      break;
    }
  }
  --sleepers_;
  // A sleeper whose time is up may find that it was woken at that moment: then it goes, since
  // nobody else would come.
  thisWorkerIsWoken = std::exchange(isWoken_, false);
  return thisWorkerIsWoken;
}

void IdleWorkers::close() {
  const MutexLock lock(mutex_);
  isClosed_ = true;
  wake_.notify_all();
}

}  // namespace zarn
