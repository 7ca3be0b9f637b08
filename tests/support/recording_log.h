// A log sink that keeps lines for a test to look at.
#pragma once

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/log_levels.h"
#include "util/logging.h"
#include "util/mutex.h"

namespace zarn::testing {

struct LoggedLine {
  LogLevel level;
  std::string text;

  bool operator==(const LoggedLine&) const = default;
};

/// Records every line, from any thread, while it lives; then puts the former sink back. A fatal
/// error throws instead of ending the process.
class RecordingLog final : public LogSink {
 public:
  explicit RecordingLog(LogLevel threshold = LogLevel::Verbose) {
    setThreshold(threshold);
    former_ = setLogSink(this);
  }
  ~RecordingLog() override { setLogSink(former_); }

  void submit(LogLevel level, std::string_view message) override {
    constexpr const char* names[] = {"ERROR", "WARN", "INFO", "DEBUG", "VERBOSE"};
    expectItsLevel(names[static_cast<std::size_t>(level)], message);
    const MutexLock lock(mutex_);
    lines_.push_back({level, std::string(message)});
  }
  [[noreturn]] void fatal(const std::string& message) override { throw std::runtime_error(message); }

  [[nodiscard]] std::vector<LoggedLine> lines() const {
    const MutexLock lock(mutex_);
    return lines_;
  }
  /// The texts alone, in order.
  [[nodiscard]] std::vector<std::string> texts() const {
    std::vector<std::string> result;
    for (const auto& line : lines()) result.push_back(line.text);
    return result;
  }
  [[nodiscard]] bool contains(const std::string& text) const { return count(text) != 0; }
  /// How many lines equal `text`.
  [[nodiscard]] std::ptrdiff_t count(const std::string& text) const {
    return std::ranges::count(lines(), text, &LoggedLine::text);
  }
  void clear() {
    const MutexLock lock(mutex_);
    lines_.clear();
  }

 private:
  mutable Mutex mutex_;
  std::vector<LoggedLine> lines_ ZARN_GUARDED_BY(mutex_);
  LogSink* former_ = nullptr;
};

}  // namespace zarn::testing
