#include "http/elastic_thread_pool.h"

#include <boost/asio/post.hpp>
#include <exception>
#include <stdexcept>
#include <utility>

#include "os/process.h"
#include "util/exceptions.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn {

ElasticThreadPool::ElasticThreadPool(std::size_t lowerBound, std::size_t maxThreads,
                                     std::chrono::milliseconds idleTime, Task beforeThreadStart)
    : lowerBound_(lowerBound),
      maxThreads_(maxThreads),
      idleTime_(idleTime),
      beforeThreadStart_(std::move(beforeThreadStart)),
      workQueue_(std::make_shared<boost::asio::io_context>()),
      keepOpen_(boost::asio::make_work_guard(*workQueue_)) {}

// Threads that cannot be joined must not outlive their pool: that ends the process.
// NOLINTNEXTLINE(bugprone-exception-escape)
ElasticThreadPool::~ElasticThreadPool() {
  inService_ = false;
  keepOpen_.reset();  // from here on the queue ends when it is empty
  idle_.close();
  joinWorkers();
  workQueue_->run();  // what was posted while the system made no threads
  joinWorkers();
}

void ElasticThreadPool::makeLowerBound() {
  const MutexLock lock(mutex_);
  while (threadCount_ < lowerBound_) {
    const std::size_t before = threadCount_;
    addWorker();
    if (threadCount_ == before) throw std::runtime_error("the pool has no thread");
  }
}

void ElasticThreadPool::post(Task task) {
  const std::size_t demand = ++outstanding_;
  idle_.taskComes();
  try {
    growIfNeeded(demand);
    boost::asio::post(*workQueue_, [this, task = std::move(task), poster = currentThreadId()] {
      idle_.taskTaken();
      runTask(task, poster);
      --outstanding_;
    });
  } catch (...) {
    idle_.taskWithdrawn();
    --outstanding_;
    throw;
  }
  idle_.taskQueued();
}

/// Tested once without the lock, which most posts then need not take.
void ElasticThreadPool::growIfNeeded(std::size_t demand) {
  const auto tooFew = [&] { return demand > threadCount_ && threadCount_ < maxThreads_; };
  if (!tooFew()) return;
  const MutexLock lock(mutex_);
  if (tooFew()) addWorker();
}

void ElasticThreadPool::addWorker() {
  ++threadCount_;
  try {
    if (beforeThreadStart_) beforeThreadStart_();
    // The map's node first: once the thread runs, nothing may fail any more.
    auto node = workers_.extract(workers_.emplace(boost::thread::id(), boost::thread()).first);
    node.mapped() = boost::thread(&ElasticThreadPool::work, this);
    node.key() = node.mapped().get_id();
    workers_.insert(std::move(node));
  } catch (const std::exception& error) {
    const std::size_t size = --threadCount_;
    quietly([&] {
      logLine(LogLevel::Error, "Thread: Couldn't add a new thread to the pool of size %zu: %s", size,
              printable(error.what()));
    });
  }
}

void ElasticThreadPool::work() {
  const auto queue = workQueue_;
  for (;;) {
    while (queue->poll_one() != 0) {
    }
    // Who would stay anyway sleeps without a deadline: nothing wakes an idle process.
    // When the pool has grown meanwhile, it is the others that leave.
    const bool stays = threadCount_ <= lowerBound_ && inService_;
    if (idle_.sleep(stays ? std::nullopt : std::optional(idleTime_))) continue;
    if (!mustStay(threadCount_) && leave()) return;
  }
}

bool ElasticThreadPool::mustStay(std::size_t threads) const noexcept {
  return outstanding_ >= threads || (threads <= lowerBound_ && inService_);
}

bool ElasticThreadPool::leave() {
  boost::thread before;
  {
    const MutexLock lock(mutex_);
    // Counted out before the test: a post that comes in between either sees the
    // smaller pool and adds a worker, or is seen by the test.
    const std::size_t threads = threadCount_--;
    if (mustStay(threads)) {
      ++threadCount_;
      return false;
    }
    const auto self = workers_.find(boost::this_thread::get_id());
    if (self != workers_.end()) {
      before = std::exchange(departed_, std::move(self->second));
      workers_.erase(self);
    }
  }
  // Outside the lock: that thread may still be on its last steps.
  if (before.joinable()) before.join();
  return true;
}

// A worker that leaves needs the lock, so that nobody may hold it while joining.
void ElasticThreadPool::joinWorkers() {
  for (;;) {
    boost::thread worker;
    {
      const MutexLock lock(mutex_);
      if (departed_.joinable()) {
        worker = std::move(departed_);
      } else if (!workers_.empty()) {
        worker = std::move(workers_.begin()->second);
        workers_.erase(workers_.begin());
      } else {
        return;
      }
    }
    worker.join();
  }
}

void ElasticThreadPool::runTask(const Task& task, std::uint32_t poster) noexcept {
  try {
    task();
  } catch (const std::exception& error) {
    quietly([&] {
      logLine(LogLevel::Error,
              "Thread: Uncaught exception running async task which was spawned by thread %04d: %s", poster,
              printable(error.what()));
    });
  } catch (...) {
    quietly([&] {
      logLine(LogLevel::Error,
              "Thread: Uncaught exception running async task which was spawned by thread %04d: unknown",
              poster);
    });
  }
}

}  // namespace zarn
