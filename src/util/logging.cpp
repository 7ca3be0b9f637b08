#include "util/logging.h"

#include <cstdlib>
#include <limits>

#include "util/mutex.h"

namespace zarn {

namespace detail {

namespace {
constexpr std::int32_t kNothingPasses = std::numeric_limits<std::int32_t>::min();
/// Held while sink or threshold change: the two copies of the threshold stay the same.
Mutex changeMutex;
}  // namespace

std::atomic<LogSink*> currentLogSink{nullptr};
std::atomic<std::int32_t> currentThreshold{kNothingPasses};

void endWithFatalLine(const std::string& message) {
  if (LogSink* const sink = logSink()) sink->fatal(message);
  std::abort();
}

}  // namespace detail

LogSink* setLogSink(LogSink* sink) noexcept {
  const MutexLock lock(detail::changeMutex);
  LogSink* const former = detail::currentLogSink.exchange(sink, std::memory_order_acq_rel);
  detail::currentThreshold.store(
      sink != nullptr ? static_cast<std::int32_t>(sink->threshold()) : detail::kNothingPasses,
      std::memory_order_relaxed);
  return former;
}

LogLevel LogSink::setThreshold(LogLevel level) noexcept {
  const MutexLock lock(detail::changeMutex);
  const auto value = static_cast<std::int32_t>(level);
  if (logSink() == this) detail::currentThreshold.store(value, std::memory_order_relaxed);
  return static_cast<LogLevel>(threshold_.exchange(value));
}

namespace {
// The labels live in their LogTag objects. A thread-local object with a destructor
// would not do: with this compiler on Windows its memory is freed before the
// destructor runs, when the thread ends.
thread_local LogTag* newestTag = nullptr;
}  // namespace

std::string_view logTagPrefix() noexcept {
  return newestTag != nullptr ? std::string_view(newestTag->prefix_) : std::string_view();
}

LogTag::LogTag(std::string_view label) : outer_(newestTag) {
  bool known = false;
  for (const LogTag* tag = outer_; tag != nullptr; tag = tag->outer_) known = known || tag->label_ == label;
  if (!known) label_ = label;
  // The prefix is made once, for all the lines of the scope.
  std::string_view labels = logTagPrefix();
  if (!labels.empty()) labels = labels.substr(1, labels.size() - 3);  // without "[" and "] "
  const char* const separator = labels.empty() || label_.empty() ? "" : "/";
  prefix_.append("[").append(labels).append(separator).append(label_).append("] ");
  newestTag = this;
}

LogTag::~LogTag() {
  newestTag = outer_;
}

}  // namespace zarn
