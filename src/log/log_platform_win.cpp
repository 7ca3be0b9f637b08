#include <windows.h>

#include <sys/timeb.h>
#include <cstdlib>

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

std::chrono::microseconds writerPollInterval() noexcept {
  return std::chrono::microseconds(0);
}

void endAfterFatalError() noexcept {
  RaiseException(kFatalErrorCode, EXCEPTION_NONCONTINUABLE, 0, nullptr);
  std::abort();
}

}  // namespace zarn::platform
