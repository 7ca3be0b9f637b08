#include "client/tool/machine/side_by_side.h"

#include <condition_variable>
#include <exception>
#include <iterator>
#include <optional>
#include <thread>
#include <utility>

#include "util/mutex.h"

namespace zarn::tool {

struct SideBySide::Outcome {
  void settle(std::vector<Finding> findings) {
    {
      const MutexLock lock(mutex);
      found = std::move(findings);
    }
    settled.notify_all();
  }

  /// Nothing when the time is over.
  std::optional<std::vector<Finding>> wait(std::chrono::steady_clock::time_point due) {
    MutexLock lock(mutex);
    for (auto now = std::chrono::steady_clock::now(); !found && now < due;) {
      lock.waitFor(settled, due - now);
      now = std::chrono::steady_clock::now();
    }
    return std::exchange(found, std::nullopt);
  }

  Mutex mutex;
  std::condition_variable settled;
  std::optional<std::vector<Finding>> found ZARN_GUARDED_BY(mutex);
};

void SideBySide::begin(std::string name, std::chrono::seconds limit, Check check) {
  const auto outcome = std::make_shared<Outcome>();
  const auto run = [outcome, name, check = std::move(check)] {
    try {
      outcome->settle(check());
    } catch (const std::exception& error) {
      outcome->settle({{name, false, std::string("broke off: ") + error.what(), "Try again"}});
    }
  };
  const auto due = std::chrono::steady_clock::now() + limit;
  running_.push_back({std::move(name), limit, due, outcome, std::make_unique<std::thread>(run)});
}

std::vector<Finding> SideBySide::collect() {
  std::vector<Finding> all;
  for (auto& [name, limit, due, outcome, thread] : running_) {
    auto found = outcome->wait(due);
    // Never detached: the thread library of the compiler for Windows may give the memory of a
    // thread that ends just then to two others.
    if (found) {
      thread->join();
    } else {
      static_cast<void>(thread.release());
      found = {{name, false, "no end after " + std::to_string(limit.count()) + " s",
                "Find out what holds it up: a drive, a name server or a service of the system that does not "
                "answer"}};
    }
    std::move(found->begin(), found->end(), std::back_inserter(all));
  }
  return all;
}

}  // namespace zarn::tool
