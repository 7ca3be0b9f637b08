#include "http/worker_calls.h"

#include <utility>

namespace zarn {
namespace {
thread_local bool thisWorkerIsCalled = false;
}  // namespace

void WorkerCalls::call() {
  // A worker counts itself among the sleepers before it looks for waiting tasks, and a
  // task counts as waiting before this: one of the two sees the other.
  if (sleepers_ == 0 || isCalling_.exchange(true)) return;
  MutexLock lock(mutex_);
  if (sleepers_ == 0) {
    isCalling_ = false;
    return;
  }
  isCalled_ = true;
  lock.unlock();
  wake_.notify_one();
}

void WorkerCalls::arrive() noexcept {
  if (std::exchange(thisWorkerIsCalled, false)) isCalling_ = false;
}

void WorkerCalls::begin() {
  --waiting_;
  // In this order: a post that still finds this worker on its way calls nobody, and its
  // task is seen to wait here.
  arrive();
  if (waiting_ > 0) call();
}

bool WorkerCalls::sleep(std::optional<std::chrono::milliseconds> limit) {
  using Clock = std::chrono::steady_clock;
  arrive();
  const auto deadline = Clock::now() + limit.value_or(std::chrono::milliseconds(0));
  MutexLock lock(mutex_);
  ++sleepers_;
  if (waiting_ > 0) {
    --sleepers_;
    return true;
  }
  while (!isCalled_ && !isClosed_) {
    if (!limit) {
      lock.wait(wake_);
    } else if (const auto left = deadline - Clock::now(); left > Clock::duration::zero()) {
      lock.waitFor(wake_, left);
    } else {
      break;
    }
  }
  --sleepers_;
  thisWorkerIsCalled = std::exchange(isCalled_, false);
  return thisWorkerIsCalled;
}

void WorkerCalls::close() {
  const MutexLock lock(mutex_);
  isClosed_ = true;
  wake_.notify_all();
}

}  // namespace zarn
