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

char* PlainArgument::writeTo(char* end) const noexcept {
  end = std::copy(text_.begin(), text_.end(), end);
  if (!isNumber_) return end;
  const fmt::format_int digits(magnitude_);
  return std::copy_n(digits.data(), digits.size(), end);
}

void formatPlain(TextBuffer& result, std::string_view format,
                 std::initializer_list<PlainArgument> arguments) {
  // With the room made once, each piece is a copy and nothing else.
  const std::size_t before = result.size();
  std::size_t room = before + format.size();
  for (const PlainArgument& argument : arguments) room += argument.longest();
  result.resize(room);
  char* end = result.data() + before;
  const PlainArgument* argument = arguments.begin();
  for (;;) {
    const std::size_t sign = format.find('%');
    const std::string_view literal = format.substr(0, sign);
    end = std::copy(literal.begin(), literal.end(), end);
    if (sign == std::string_view::npos) break;
    if (format[sign + 1] == '%') {
      *end++ = '%';
    } else {
      end = argument->writeTo(end);
      ++argument;
    }
    format.remove_prefix(sign + 2);
  }
  result.resize(static_cast<std::size_t>(end - result.data()));
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
