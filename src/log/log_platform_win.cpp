#include <windows.h>

#include <sys/timeb.h>
#include <cstdlib>
#include <ctime>

#include "log/log_platform.h"

namespace zarn::platform {

namespace {
constexpr DWORD kFatalErrorCode = 0xC0DEDEAD;
}  // namespace

LogTime currentLogTime() noexcept {
  __timeb64 now{};
  _ftime64(&now);
  return {now.time, now.millitm};
}

std::tm localCalendarTime(std::int64_t seconds) noexcept {
  const __time64_t time = seconds;
  const std::tm* const fields = _localtime64(&time);  // points into memory of this thread
  return fields != nullptr ? *fields : std::tm{};
}

// The system's timer ticks too slowly for waits this short: a line would reach
// the disk a tick late.
std::chrono::microseconds writerPollInterval() noexcept {
  return std::chrono::microseconds(0);
}

void endAfterFatalError() noexcept {
  RaiseException(kFatalErrorCode, EXCEPTION_NONCONTINUABLE, 0, nullptr);
  std::abort();
}

}  // namespace zarn::platform
