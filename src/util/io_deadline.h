// A time limit for input and output on names that others chose: a stalled disk, a
// share that does not answer or a lock that its owner never lets go must cost a
// status, not the thread.
//
//   IoDeadline deadline(kOpenLimit);
//   FileHandle file(CreateFileW(...));  // fails as cancelled when it takes longer
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "os/process.h"

namespace zarn {

/// How long operations on names that others chose may take: opening one and looking what
/// it leads to, one step with a log file or its folder, copying a bundle.
inline constexpr std::chrono::seconds kOpenLimit{10};
inline constexpr std::chrono::seconds kLogFileLimit{5};
inline constexpr std::chrono::minutes kCopyLimit{10};

/// While it is armed, every blocking operation of the thread that made it ends, as
/// cancelled, when the limit has passed (up to twice the limit after a renewal); so do
/// all that follow until it is disarmed. Only for local variables, on the thread that
/// made them. When there is no memory or no thread to watch it, there is no limit.
class IoDeadline {
 public:
  /// Arms it.
  explicit IoDeadline(std::chrono::milliseconds limit) noexcept;
  IoDeadline(const IoDeadline&) = delete;
  IoDeadline& operator=(const IoDeadline&) = delete;
  ~IoDeadline() { disarm(); }

  void arm() noexcept;
  void disarm() noexcept;

  /// Progress was made: the limit counts from here. Costs one addition.
  void renew() noexcept { renewals_.fetch_add(1, std::memory_order_relaxed); }

 private:
  friend class IoWatch;
  using Clock = std::chrono::steady_clock;

  const std::chrono::milliseconds limit_;
  const os::InterruptibleThread thread_;
  std::atomic<std::uint32_t> renewals_{0};
  bool isArmed_ = false;
  // The watch's, under its mutex.
  Clock::time_point due_;
  std::uint32_t renewalsSeen_ = 0;
};

}  // namespace zarn
