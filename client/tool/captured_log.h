// Keeps the log lines that the service's own code writes while it runs in this
// process, for a command that reports what it found.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "util/logging.h"
#include "util/mutex.h"

namespace zarn::tool {

/// The process's log while it lives.
class CapturedLog final : public LogSink {
 public:
  CapturedLog() {
    setThreshold(LogLevel::Debug);
    former_ = setLogSink(this);
  }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;
  ~CapturedLog() override { setLogSink(former_); }

  void submit(LogLevel level, std::string_view message) override {
    const MutexLock lock(mutex_);
    lines_.emplace_back(message);
    if (level == LogLevel::Error) errors_.emplace_back(message);
  }

  [[noreturn]] void fatal(const std::string& message) override { throw FatalError(message); }

  /// Every line so far, the errors included.
  [[nodiscard]] std::vector<std::string> lines() const {
    const MutexLock lock(mutex_);
    return lines_;
  }
  [[nodiscard]] std::vector<std::string> errors() const {
    const MutexLock lock(mutex_);
    return errors_;
  }

  /// What ends the service ends only the command here.
  struct FatalError : std::runtime_error {
    using std::runtime_error::runtime_error;
  };

 private:
  mutable Mutex mutex_;
  std::vector<std::string> lines_ ZARN_GUARDED_BY(mutex_);
  std::vector<std::string> errors_ ZARN_GUARDED_BY(mutex_);
  LogSink* former_ = nullptr;
};

}  // namespace zarn::tool
