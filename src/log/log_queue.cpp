#include "log/log_queue.h"

#include <algorithm>
#include <string>
#include <utility>

#include "os/clock.h"

namespace zarn {
namespace {

/// After a line the writer looks again so many times before it sleeps: 10 ms in all.
constexpr int kPolls = 100;

/// The memory of more slots than these is given back by the first batch after a
/// flood that can do without.
constexpr std::size_t kKeptSlots = 1024;

constexpr std::size_t kCopiedWhileLocked = 512;
/// The memory of a message longer than these bytes is given back when it is written:
/// a longer one comes with memory of its own.
constexpr std::size_t kKeptMessageBytes = 2 * kCopiedWhileLocked;

constexpr std::chrono::hours kLongestWait{1};

constexpr std::size_t kLongestNotice = 100;

/// The memory of a message that a slot keeps for the next one beside its own; 0 for a
/// text that lies in the string itself.
std::size_t keptBytes(const std::string& message) noexcept {
  const std::size_t inside = std::string().capacity();
  return message.capacity() > inside ? message.capacity() : 0;
}

std::string lostNotice(std::uint64_t lines) {
  return formatPrintf("Log lines that were lost because the queue had no room for them: %llu", lines);
}

}  // namespace

void LogQueue::push(const LogStamp& stamp, std::string_view prefix, std::string_view message) noexcept {
  try {
    tryPush(stamp, prefix, message);
  } catch (...) {
    countLost();  // no memory
  }
}

void LogQueue::tryPush(const LogStamp& stamp, std::string_view prefix, std::string_view message) {
  // A short message goes into memory that its slot kept from another; a long one
  // must not make others wait while it is copied.
  const bool isLong = message.size() > kCopiedWhileLocked;
  std::string copy;
  if (isLong) copy.append(prefix).append(message);

  Lock lock(mutex_);
  if (isStopping()) return;
  const std::uint64_t lost = lost_.load(std::memory_order_relaxed);
  if (!hasRoomFor(prefix.size() + message.size())) [[unlikely]]
    return countLost();
  if (lost != 0) [[unlikely]] {
    LogItem& item = nextItem({LogLevel::Warn, stamp.threadId, stamp.time});
    item.message = lostNotice(lost);
    keepItem(item);
    lost_.fetch_sub(lost, std::memory_order_relaxed);
  }
  LogItem& item = nextItem(stamp);
  if (isLong) {
    item.message.swap(copy);
  } else {
    item.message.assign(prefix.empty() ? message : prefix);
    if (!prefix.empty()) item.message.append(message);
  }
  keepItem(item);
  const bool wake = std::exchange(writerSleeps_, false);
  lock.unlock();
  if (wake) work_.notify_one();
}

bool LogQueue::hasRoomFor(std::size_t bytes) const {
  if (waiting_.count_ < waiting_.slots_.size()) {
    bytes = std::max(bytes, keptBytes(waiting_.slots_[waiting_.count_].message));
  }
  constexpr std::size_t items = 2 * sizeof(LogItem) + kLongestNotice;  // there may be a notice before it
  return waiting_.bytes_ + takenBytes_ + items + bytes <= kMaximumQueueBytes;
}

/// The slot behind the last item, with the message of an earlier one in it.
LogItem& LogQueue::nextItem(const LogStamp& stamp) {
  const bool isKept = waiting_.count_ < waiting_.slots_.size();
  LogItem& item = isKept ? waiting_.slots_[waiting_.count_] : waiting_.slots_.emplace_back();
  static_cast<LogStamp&>(item) = stamp;
  return item;
}

void LogQueue::keepItem(const LogItem& item) {
  waiting_.bytes_ += sizeof(LogItem) + std::max(item.message.size(), keptBytes(item.message));
  ++waiting_.count_;
}

bool LogQueue::flush(Clock::time_point end) {
  Lock lock(mutex_);
  if (writerFinished_) return true;
  const std::uint64_t ticket = ++flushesAsked_;
  work_.notify_one();
  while (!writerFinished_ && flushesAnswered_ < ticket) {
    if (!waitForNews(lock, end)) return false;
  }
  return true;
}

bool LogQueue::waitForWriter(Clock::time_point end) {
  Lock lock(mutex_);
  while (!writerFinished_) {
    if (!waitForNews(lock, end)) return false;
  }
  return true;
}

bool LogQueue::waitForNews(Lock& lock, Clock::time_point end) {
  const auto now = Clock::now();
  if (now >= end) return false;
  // The C library computes with the time at which a wait ends: one without end would overflow it.
  lock.waitFor(drained_, std::min<Clock::duration>(end - now, kLongestWait));
  return true;
}

// The flag changes under the lock, which the writer holds from its look at the flag until
// it sleeps: it cannot miss the wake-up.
void LogQueue::stop() {
  const Lock lock(mutex_);
  stopping_.store(true, std::memory_order_release);
  work_.notify_one();
}

void LogQueue::finish() {
  const Lock lock(mutex_);
  writerFinished_ = true;
  drained_.notify_all();
}

bool LogQueue::take(Batch& batch) {
  // The batch before is written. Its slots go back with the memory of their messages, but
  // for what only a flood or a long line needed.
  for (LogItem& item : batch.items()) {
    if (item.message.capacity() > kKeptMessageBytes)
      std::string().swap(item.message);  // assigning would keep it
  }
  if (batch.slots_.size() > kKeptSlots && batch.count_ <= kKeptSlots) {
    std::vector<LogItem>().swap(batch.slots_);
  }
  batch.count_ = 0;
  batch.bytes_ = 0;

  Lock lock(mutex_);
  takenBytes_ = 0;
  answerFlushes(flushesTaken_);
  while (waiting_.count_ == 0 && !isStopping()) {
    answerFlushes(flushesAsked_);
    waitForWork(lock);
  }
  if (isStopping()) return false;
  std::swap(batch, waiting_);
  takenBytes_ = batch.bytes_;
  flushesTaken_ = flushesAsked_;
  pollsLeft_ = kPolls;
  return true;
}

void LogQueue::waitForWork(Lock& lock) {
  // A writer that polls need not be woken, which would cost the thread that logs.
  if (pollsLeft_ > 0 && os::pollInterval().count() > 0) {
    --pollsLeft_;
    lock.waitFor(work_, os::pollInterval());
    return;
  }
  writerSleeps_ = true;
  lock.wait(work_);
  writerSleeps_ = false;
}

void LogQueue::answerFlushes(std::uint64_t upTo) {
  if (flushesAnswered_ >= upTo) return;
  flushesAnswered_ = upTo;
  drained_.notify_all();
}

}  // namespace zarn
