#include "util/logging.h"

#include <fmt/format.h>

#include <algorithm>
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

std::string formatPrintf(std::string_view format, fmt::printf_args args) {
  return fmt::vsprintf(fmt::string_view(format.data(), format.size()), args);
}

void PlainArgument::appendTo(TextBuffer& result) const {
  result.append(text_);
  if (!isNumber_) return;
  const fmt::format_int digits(magnitude_);
  result.append(digits.data(), digits.data() + digits.size());
}

void formatPlain(TextBuffer& result, std::string_view format,
                 std::initializer_list<PlainArgument> arguments) {
  const PlainArgument* argument = arguments.begin();
  for (;;) {
    const std::size_t sign = format.find('%');
    result.append(format.substr(0, sign));
    if (sign == std::string_view::npos) return;
    if (format[sign + 1] == '%') {
      result.push_back('%');
    } else {
      argument->appendTo(result);
      ++argument;
    }
    format.remove_prefix(sign + 2);
  }
}

void logSystemError(LogLevel level, std::uint32_t code) {
  const LogSink* const sink = logSink();
  if (sink == nullptr || !sink->isEnabled(level)) return;
  // The code is shown as a signed number, as system codes above 0x7fffffff usually are.
  logLine(level, "    %s",
          zarn::formatPrintf("Win32 Error: %d %s", static_cast<std::int32_t>(code), systemErrorText(code)));
}

void logFatalMessage(const std::string& message) {
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

std::vector<std::string> logTags() {
  std::vector<std::string> labels;
  for (const LogTag* tag = newestTag; tag != nullptr; tag = tag->outer_) labels.push_back(tag->label_);
  std::reverse(labels.begin(), labels.end());
  return labels;
}

LogTag::LogTag(std::string_view label) : outer_(newestTag) {
  bool known = false;
  for (const LogTag* tag = outer_; tag != nullptr; tag = tag->outer_) known = known || tag->label_ == label;
  if (!known) label_ = label;
  newestTag = this;
}

LogTag::~LogTag() {
  newestTag = outer_;
}

}  // namespace zarn
