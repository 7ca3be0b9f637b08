// A listener that ends when it is told to, or soon after.
//
// Neither the call that ends a listener nor the listener itself can be trusted to come
// back: a call that a client holds up keeps the one, a fault of the RPC runtime keeps
// the other. A service that waited for them would never end and never be restarted.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace zarn {

/// What the listener is made of. May be called from any thread, also at the same time.
struct ListenerCalls {
  /// Blocks until listening has ended; a status, 0 for success.
  std::function<std::uint32_t()> listen;
  /// Makes listen() return; a status, 0 for success, BoundedListener::kNotListening when
  /// it does not listen yet or any more.
  std::function<std::uint32_t()> stopListening;
  /// Sleeps until no work runs that must not be cut short; false when it still does after the limit.
  std::function<bool(std::chrono::milliseconds)> waitUntilIdle;
};

class BoundedListener {
 public:
  static constexpr std::chrono::seconds kLimit{5};
  /// No work runs longer: a copy, the checks, an installer and its logs.
  static constexpr std::chrono::minutes kLongestWork{45};
  /// What stop() answers when stopListening() did not come back (ERROR_TIMEOUT).
  static constexpr std::uint32_t kTimedOut = 1460;
  /// RPC_S_NOT_LISTENING.
  static constexpr std::uint32_t kNotListening = 1715;

  explicit BoundedListener(ListenerCalls calls, std::chrono::milliseconds limit = kLimit);
  BoundedListener(const BoundedListener&) = delete;
  BoundedListener& operator=(const BoundedListener&) = delete;

  /// Listens on a thread of its own and returns listen()'s status when that has ended.
  /// After stop(), when no work runs any more and the limit has passed all the same, it
  /// returns 0 and leaves the thread behind: the process is about to end.
  std::uint32_t run();

  /// Ends listening; from any thread. One that comes before run() listens is tried again
  /// for two seconds. Returns stopListening()'s last status, at the limit at the latest.
  std::uint32_t stop();

 private:
  struct State;
  const std::shared_ptr<State> state_;
};

}  // namespace zarn
