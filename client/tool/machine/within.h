// Work that may hang, given up after a while.
#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

namespace zarn::tool {

/// Work on a thread of its own, which is left behind when the work outlasts the wait for it:
/// the process must end without waiting for its threads, and what the work uses must live
/// as long.
template <typename T>
class BegunWork {
 public:
  explicit BegunWork(std::function<T()> work) {
    std::packaged_task<T()> task(std::move(work));
    answer_ = task.get_future();
    thread_.reset(std::make_unique<std::thread>(std::move(task)).release());
  }

  /// Once. What the work answers; nothing when that takes longer. Throws what it throws.
  [[nodiscard]] std::optional<T> take(std::chrono::steady_clock::time_point due) {
    if (answer_.wait_until(due) != std::future_status::ready) return std::nullopt;
    thread_->join();
    return answer_.get();
  }

 private:
  /// Never detached: the thread library of the compiler for Windows may give the memory of a
  /// thread that ends just then to two others.
  struct LeaveRunning {
    void operator()(std::thread* thread) const noexcept {
      if (!thread->joinable()) std::default_delete<std::thread>()(thread);
    }
  };

  std::future<T> answer_;
  std::unique_ptr<std::thread, LeaveRunning> thread_;
};

template <typename T>
[[nodiscard]] std::optional<T> within(std::chrono::seconds limit, std::function<T()> work) {
  return BegunWork<T>(std::move(work)).take(std::chrono::steady_clock::now() + limit);
}

}  // namespace zarn::tool
