// Places for the calls of a procedure: how many run at once, how many wait, and whose
// turn it is. Nobody's calls keep out those of somebody else.
//
// Places are shared out by owner, the user who calls. Turns go to the owner who has
// the fewest calls running, of these to the one served longest ago, and to the oldest
// of that owner's calls. When all places are taken, who has the most of them loses
// the newest one to another who has fewer by two or more; who has half of them gets no
// more while others wait.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <utility>

#include "util/mutex.h"

namespace zarn {

/// All operations may be called from any thread.
class CallQueue {
 public:
  struct Limits {
    std::size_t running;
    std::size_t waiting;
  };

  /// Why a call gets no turn.
  enum class Refusal : std::uint8_t { None, Full, CallerGone, Stopping, Unknown };

  /// Answers quickly and without throwing whether nobody waits for the call's answer
  /// any more. Asked under the queue's lock.
  using IsGone = std::function<bool()>;

  /// A call's turn, which ends with this object; or the reason why there is none.
  class [[nodiscard]] Turn {
   public:
    Turn(Turn&& other) noexcept
        : queue_(std::exchange(other.queue_, nullptr)),
          owner_(std::move(other.owner_)),
          refusal_(other.refusal_) {}
    Turn& operator=(Turn&&) = delete;
    ~Turn() {
      if (queue_ != nullptr) queue_->leave(owner_);
    }

    explicit operator bool() const noexcept { return queue_ != nullptr; }
    [[nodiscard]] Refusal refusal() const noexcept { return refusal_; }

   private:
    friend class CallQueue;
    explicit Turn(std::string owner) noexcept : owner_(std::move(owner)) {}

    CallQueue* queue_ = nullptr;  ///< null without a turn
    std::string owner_;
    Refusal refusal_ = Refusal::None;
  };

  explicit CallQueue(Limits limits) noexcept : limits_(limits) {}
  CallQueue(const CallQueue&) = delete;
  CallQueue& operator=(const CallQueue&) = delete;

  /// No turn, for a reason that the queue need not be asked for.
  [[nodiscard]] static Turn refused(Refusal reason) noexcept;

  /// Waits for a turn, or for the reason why there will be none. Throws std::bad_alloc only.
  Turn enter(std::string owner, IsGone isGone) ZARN_EXCLUDES(mutex_);

  /// From here on nobody waits or gets a turn; who has one keeps it.
  void close() noexcept ZARN_EXCLUDES(mutex_);

  /// Sleeps until no call runs; false when one still does after `limit`.
  bool waitUntilIdle(std::chrono::milliseconds limit) ZARN_EXCLUDES(mutex_);

  [[nodiscard]] std::size_t waiting() const ZARN_EXCLUDES(mutex_);

 private:
  /// Lives on the stack of the thread that waits.
  struct Waiter {
    std::string owner;
    IsGone isGone;
    bool isSettled = false;
    Refusal refusal = Refusal::None;
    os::Condition settled{};
  };
  using Waiters = std::list<Waiter*>;

  /// What an owner has.
  struct Share {
    std::size_t running = 0;
    std::size_t waiting = 0;
    std::uint64_t servedAt = 0;
  };

  [[nodiscard]] std::size_t mostWaiting() const ZARN_REQUIRES(mutex_);
  [[nodiscard]] std::size_t waitingOf(const std::string& owner) const ZARN_REQUIRES(mutex_);
  bool makeRoomFor(const std::string& owner) ZARN_REQUIRES(mutex_);
  void wait(Waiter& self, MutexLock<Mutex>& lock) ZARN_REQUIRES(mutex_);
  void refuseGone() ZARN_REQUIRES(mutex_);
  void refuse(Waiters::iterator waiter, Refusal reason) ZARN_REQUIRES(mutex_);
  void settle(Waiters::iterator waiter) ZARN_REQUIRES(mutex_);
  void begin(Share& share) ZARN_REQUIRES(mutex_);
  void serveNext() ZARN_REQUIRES(mutex_);
  [[nodiscard]] Waiters::iterator next() ZARN_REQUIRES(mutex_);
  void forgetIfIdle(const std::string& owner) ZARN_REQUIRES(mutex_);
  void leave(const std::string& owner) noexcept ZARN_EXCLUDES(mutex_);

  const Limits limits_;
  mutable Mutex mutex_;
  os::Condition idle_;
  Waiters waiters_ ZARN_GUARDED_BY(mutex_);  ///< oldest first
  std::map<std::string, Share> shares_ ZARN_GUARDED_BY(mutex_);
  std::size_t running_ ZARN_GUARDED_BY(mutex_) = 0;
  std::uint64_t served_ ZARN_GUARDED_BY(mutex_) = 0;
  bool isClosed_ ZARN_GUARDED_BY(mutex_) = false;
};

/// The reason as the end of a sentence, "too many requests wait"; empty for None.
[[nodiscard]] const char* inWords(CallQueue::Refusal refusal) noexcept;

}  // namespace zarn
