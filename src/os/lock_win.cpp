#include "os/lock.h"

#include <windows.h>

#include <algorithm>

namespace zarn::os {
namespace {

static_assert(sizeof(SRWLOCK) == sizeof(void*) && sizeof(CONDITION_VARIABLE) == sizeof(void*));

SRWLOCK* systemLock(void*& state) noexcept {
  return reinterpret_cast<SRWLOCK*>(&state);
}
CONDITION_VARIABLE* systemCondition(void*& state) noexcept {
  return reinterpret_cast<CONDITION_VARIABLE*>(&state);
}

// Whoever waits looks at its condition again in any case, so that it can be sooner.
constexpr std::int64_t kLongestWait = 24LL * 60 * 60 * 1000;

}  // namespace

void Lock::lock() noexcept {
  AcquireSRWLockExclusive(systemLock(state_));
}

void Lock::unlock() noexcept {
  ReleaseSRWLockExclusive(systemLock(state_));
}

void RecursiveLock::lock() noexcept {
  const std::uint32_t self = GetCurrentThreadId();
  // No other thread can have written our own number.
  if (owner_.load(std::memory_order_relaxed) != self) {
    lock_.lock();
    owner_.store(self, std::memory_order_relaxed);
  }
  ++depth_;
}

void RecursiveLock::unlock() noexcept {
  if (--depth_ != 0) return;
  owner_.store(0, std::memory_order_relaxed);
  lock_.unlock();
}

void Condition::notify_one() noexcept {
  WakeConditionVariable(systemCondition(state_));
}

void Condition::notify_all() noexcept {
  WakeAllConditionVariable(systemCondition(state_));
}

void Condition::wait(std::unique_lock<Lock>& lock) noexcept {
  SleepConditionVariableSRW(systemCondition(state_), systemLock(lock.mutex()->state_), INFINITE, 0);
}

void Condition::waitMilliseconds(std::unique_lock<Lock>& lock, std::int64_t milliseconds) noexcept {
  const std::int64_t limit = std::clamp<std::int64_t>(milliseconds, 0, kLongestWait);
  SleepConditionVariableSRW(systemCondition(state_), systemLock(lock.mutex()->state_),
                            static_cast<DWORD>(limit), 0);
}

}  // namespace zarn::os
