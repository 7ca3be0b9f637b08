// What the service would decide on a file, worked out in this process, and the log lines
// that the service's own code writes while it is found out.
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/tool/machine/collected_text.h"
#include "client/tool/report/outcome.h"
#include "client/tool/report/verification_report.h"
#include "trust/trust_api.h"
#include "util/logging.h"
#include "util/mutex.h"

namespace zarn::tool {

/// The process's log from here on. Must outlive every thread that logs.
class CapturedLog final : public LogSink {
 public:
  CapturedLog() {
    setThreshold(LogLevel::Debug);
    setLogSink(this);
  }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  void submit(LogLevel level, std::string_view message) override {
    // As the service's own log would show it, but for sign-ins to a proxy that libcurl repeats.
    std::string line = masked(message);
    const MutexLock lock(mutex_);
    if (level == LogLevel::Error) errors_.push_back(line);
    lines_.push_back(std::move(line));
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
};

/// Makes the checks of an install request on one file, in its order, each but the size
/// by the same function; nothing is copied or run. The first that is not passed decides.
/// A structured exception inside a trust check is that check's failure. `log` is the
/// process's log.
[[nodiscard]] VerificationReport verifyBundle(const std::wstring& path, const CapturedLog& log,
                                              TrustApi& api = systemTrustApi());

/// Makes this process see what the service sees, and returns its log from now on. Once a
/// process, while no other thread reads the environment.
[[nodiscard]] const CapturedLog& beginVerification();

/// Why a check of the file would be refused, found out in this process, after which no other
/// verification is begun; given up after `limit`.
[[nodiscard]] WorkedOut workOutCheck(const std::wstring& path, std::chrono::seconds limit);

/// Why an install would be refused by the file's name or size, which a check does not ask
/// for; empty when it would not.
[[nodiscard]] std::string whyNotInstallable(const std::wstring& path);

}  // namespace zarn::tool
