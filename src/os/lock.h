// Locks and conditions that need nothing which could be refused: no memory, no handle, at no
// time. The compiler's own make both on Windows when they are first used, and a thread that
// is refused them there waits for ever.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace zarn::os {

#if defined(_WIN32)

/// Like std::mutex, and never throws.
class Lock {
 public:
  constexpr Lock() noexcept = default;
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  void lock() noexcept;
  void unlock() noexcept;

 private:
  friend class Condition;
  void* state_ = nullptr;  ///< the system's, all of it
};

/// Like std::recursive_mutex, and never throws.
class RecursiveLock {
 public:
  constexpr RecursiveLock() noexcept = default;
  RecursiveLock(const RecursiveLock&) = delete;
  RecursiveLock& operator=(const RecursiveLock&) = delete;

  void lock() noexcept;
  void unlock() noexcept;

 private:
  Lock lock_;
  std::atomic<std::uint32_t> owner_{0};  ///< the thread that has it; 0 is none
  std::uint32_t depth_ = 0;              ///< the owner's own
};

/// Like std::condition_variable, and never throws. May wake spuriously.
class Condition {
 public:
  constexpr Condition() noexcept = default;
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;

  void notify_one() noexcept;
  void notify_all() noexcept;
  void wait(std::unique_lock<Lock>& lock) noexcept;
  /// For as long as `duration`, rounded up to milliseconds, or a little less.
  template <typename Duration>
  void wait_for(std::unique_lock<Lock>& lock, Duration duration) noexcept {
    waitMilliseconds(lock, std::chrono::ceil<std::chrono::milliseconds>(duration).count());
  }

 private:
  void waitMilliseconds(std::unique_lock<Lock>& lock, std::int64_t milliseconds) noexcept;

  void* state_ = nullptr;  ///< the system's, all of it
};

#else

using Lock = std::mutex;
using RecursiveLock = std::recursive_mutex;
using Condition = std::condition_variable;

#endif

}  // namespace zarn::os
