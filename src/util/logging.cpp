#include "util/logging.h"

#include <algorithm>
#include <cstdlib>

namespace zarn {

namespace detail {

std::atomic<LogSink*> currentLogSink{nullptr};

std::string formatPrintf(std::string_view format, fmt::printf_args args) {
  return fmt::vsprintf(fmt::string_view(format.data(), format.size()), args);
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
  return detail::currentLogSink.exchange(sink, std::memory_order_acq_rel);
}

namespace {
std::vector<std::string>& mutableTags() noexcept {
  thread_local std::vector<std::string> tags;
  return tags;
}
}  // namespace

const std::vector<std::string>& logTags() noexcept { return mutableTags(); }

LogTag::LogTag(std::string_view label) {
  auto& tags = mutableTags();
  const bool known = std::find(tags.begin(), tags.end(), label) != tags.end();
  tags.emplace_back(known ? std::string_view() : label);
}

LogTag::~LogTag() { mutableTags().pop_back(); }

}  // namespace zarn
