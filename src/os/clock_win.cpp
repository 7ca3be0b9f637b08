#include <sys/timeb.h>

#include "os/clock.h"

namespace zarn::os {

WallTime wallTime() noexcept {
  __timeb64 now{};
  _ftime64(&now);
  return {now.time, now.millitm};
}

bool localTime(std::int64_t seconds, std::tm& out) noexcept {
  const std::tm* const result = _localtime64(&seconds);  // of the calling thread
  if (result == nullptr) return false;
  out = *result;
  return true;
}

bool utcTime(std::int64_t seconds, std::tm& out) noexcept {
  return _gmtime64_s(&out, &seconds) == 0;
}

std::chrono::microseconds pollInterval() noexcept {
  return std::chrono::microseconds(0);
}

}  // namespace zarn::os
