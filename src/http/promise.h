// The one-shot result of asynchronous work: settled exactly once, with a value or
// an exception, and waited for by any number of threads.
//
//   const auto promise = Promise<std::string>::Create();
//   worker([promise] { promise->resolve("done"); });
//   const std::string text = promise->wait();
//
// A promise that dies with an exception nobody looked at says so in the log; one
// that dies unsettled does the same with LostException. All operations may be
// called from any thread.
#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "util/exceptions.h"
#include "util/logging.h"
#include "util/mutex.h"
#include "util/printable.h"

namespace zarn {

template <typename T>
class Promise : public std::enable_shared_from_this<Promise<T>> {
  struct Key {
    explicit Key() = default;
  };

 public:
  class LostException : public std::exception {
   public:
    [[nodiscard]] const char* what() const noexcept override {
      return "Promise fell out of scope without resolving or rejecting";
    }
  };

  class ResolvedTwiceException : public std::logic_error {
   public:
    ResolvedTwiceException() : std::logic_error("Promise was resolved or rejected more than once") {}
  };

  /// Runs once, on the thread that settles the promise (or that attaches the
  /// continuation, when it is settled already), without the promise's lock. What
  /// it throws is logged. The reference is not to be kept.
  using Continuation = std::function<void(Promise&)>;

  [[nodiscard]] static std::shared_ptr<Promise> Create() { return std::make_shared<Promise>(Key()); }

  explicit Promise(Key /*createdByCreateOnly*/) {}
  Promise(const Promise&) = delete;
  Promise& operator=(const Promise&) = delete;
  ~Promise() noexcept;

  /// Both throw ResolvedTwiceException on a settled promise, whose outcome stays;
  /// reject() also std::invalid_argument for a null exception, which could be neither
  /// thrown nor told from an unsettled promise.
  void resolve(T value) {
    Settled settled;
    {
      const MutexLock lock(mutex_);
      requireUnsettled();
      value_.emplace(std::move(value));
      resolved_ = true;
      settled = announce();
    }
    run(settled.continuations);
  }
  void reject(std::exception_ptr exception) {
    if (exception == nullptr) throw std::invalid_argument("Promise was rejected without an exception");
    Settled settled;
    {
      const MutexLock lock(mutex_);
      requireUnsettled();
      exception_ = std::move(exception);
      settled = announce();
    }
    run(settled.continuations);
  }

  /// Sleeps until the promise is settled. Returns a copy of the value, or throws
  /// the exception, which counts as handled from then on.
  [[nodiscard]] T wait() {
    MutexLock lock(mutex_);
    while (!isSettled()) lock.wait(condition_);
    if (resolved_) return *value_;
    exceptionHandled_ = true;
    std::rethrow_exception(exception_);
  }

  void then(Continuation continuation) {
    {
      const MutexLock lock(mutex_);
      if (!isSettled()) {
        continuations_.push_back(std::move(continuation));
        return;
      }
    }
    run({std::move(continuation)});
  }

 private:
  [[nodiscard]] bool isSettled() const ZARN_REQUIRES(mutex_) { return resolved_ || exception_ != nullptr; }

  void requireUnsettled() const ZARN_REQUIRES(mutex_) {
    if (isSettled()) throw ResolvedTwiceException();
  }

  struct Settled {
    /// A continuation may release what its promise was kept alive by. Null while
    /// the promise is being destroyed, when nothing can release it any more.
    std::shared_ptr<Promise> self;
    std::vector<Continuation> continuations;
  };
  /// Wakes the waiters, who wait for the lock then, and takes what is to run without it.
  [[nodiscard]] Settled announce() ZARN_REQUIRES(mutex_) {
    condition_.notify_all();
    if (continuations_.empty()) return {};
    return {this->weak_from_this().lock(), std::exchange(continuations_, {})};
  }

  void run(const std::vector<Continuation>& continuations) noexcept;

  std::vector<Continuation> continuations_ ZARN_GUARDED_BY(mutex_);  ///< while unsettled
  Mutex mutex_;
  os::Condition condition_;  ///< signalled once, to all who wait
  std::optional<T> value_ ZARN_GUARDED_BY(mutex_);
  bool resolved_ ZARN_GUARDED_BY(mutex_) = false;
  std::exception_ptr exception_ ZARN_GUARDED_BY(mutex_);
  bool exceptionHandled_ ZARN_GUARDED_BY(mutex_) = false;  ///< somebody was thrown it
};

template <typename T>
void Promise<T>::run(const std::vector<Continuation>& continuations) noexcept {
  for (const Continuation& continuation : continuations) {
    try {
      continuation(*this);
    } catch (const std::exception& error) {
      quietly([&] { logLine(LogLevel::Error, "Promise continuation failed: %s", printable(error.what())); });
    } catch (...) {
      quietly([] { logLine(LogLevel::Error, "Promise continuation failed with an unknown exception"); });
    }
  }
}

template <typename T>
Promise<T>::~Promise() noexcept {
  // No lock: the last owner is gone, so that no other thread can know the promise.
  try {
    if (!resolved_ && exception_ == nullptr) reject(std::make_exception_ptr(LostException()));
    if (exception_ != nullptr && !exceptionHandled_) std::rethrow_exception(exception_);
  } catch (const std::exception& error) {
    quietly([&] {
      logLine(LogLevel::Error, "Promise destroyed without handling exception: %s", printable(error.what()));
    });
  } catch (...) {
    quietly([] { logLine(LogLevel::Error, "Promise destroyed without handling unknown exception"); });
  }
}

}  // namespace zarn
