// Work that may hang, given up after a while.
#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <thread>

namespace zarn::tool {

/// What `work` answers; nothing when that takes longer than `limit`. Then its thread is left
/// behind: the process must end without waiting for its threads, and what the work uses
/// must live as long. Throws what it throws.
template <typename T>
[[nodiscard]] std::optional<T> within(std::chrono::seconds limit, std::function<T()> work) {
  const auto task = std::make_shared<std::packaged_task<T()>>(std::move(work));
  std::future<T> answer = task->get_future();
  // Never detached: the thread library of the compiler for Windows may give the memory of a
  // thread that ends just then to two others.
  auto thread = std::make_unique<std::thread>([task] { (*task)(); });
  if (answer.wait_for(limit) != std::future_status::ready) {
    static_cast<void>(thread.release());
    return std::nullopt;
  }
  thread->join();
  return answer.get();
}

}  // namespace zarn::tool
