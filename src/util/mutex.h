// Mutexes that clang's thread-safety analysis understands: a member declared
// ZARN_GUARDED_BY(mutex_) can only be touched where the compiler sees the lock.
#pragma once

#include <mutex>
#include <type_traits>
#include <utility>

#include "os/lock.h"

#if defined(__clang__)
#define ZARN_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ZARN_THREAD_ANNOTATION(x)
#endif

#define ZARN_GUARDED_BY(m) ZARN_THREAD_ANNOTATION(guarded_by(m))
#define ZARN_REQUIRES(...) ZARN_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ZARN_EXCLUDES(...) ZARN_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))

namespace zarn {

/// A lock of type M with annotations.
template <typename M>
class ZARN_THREAD_ANNOTATION(capability("mutex")) BasicMutex {
 public:
  BasicMutex() = default;
  BasicMutex(const BasicMutex&) = delete;
  BasicMutex& operator=(const BasicMutex&) = delete;

  void lock() ZARN_THREAD_ANNOTATION(acquire_capability()) { mutex_.lock(); }
  void unlock() ZARN_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
  M& native() { return mutex_; }

 private:
  M mutex_;
};

using Mutex = BasicMutex<os::Lock>;
using RecursiveMutex = BasicMutex<os::RecursiveLock>;

/// Holds a mutex for a scope; may be released early, once.
template <typename M>
class ZARN_THREAD_ANNOTATION(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(M& mutex) ZARN_THREAD_ANNOTATION(acquire_capability(mutex)) : lock_(mutex.native()) {}
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;
  ~MutexLock() ZARN_THREAD_ANNOTATION(release_capability()) = default;

  void unlock() ZARN_THREAD_ANNOTATION(release_capability()) { lock_.unlock(); }

  /// Sleeps until notified or woken spuriously; the caller loops over its condition.
  void wait(os::Condition& condition) { condition.wait(lock_); }

  template <typename Duration>
  void waitFor(os::Condition& condition, Duration duration) {
    condition.wait_for(lock_, duration);
  }

 private:
  std::unique_lock<std::remove_reference_t<decltype(std::declval<M&>().native())>> lock_;
};

template <typename M>
MutexLock(M&) -> MutexLock<M>;

}  // namespace zarn
