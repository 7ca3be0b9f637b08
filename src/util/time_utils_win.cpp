#include "util/time_utils.h"

namespace zarn::TimeUtils::platform {

bool localTime(std::int64_t seconds, std::tm& out) noexcept {
  const std::tm* const result = _localtime64(&seconds);  // of the calling thread
  if (result == nullptr) return false;
  out = *result;
  return true;
}

bool utcTime(std::int64_t seconds, std::tm& out) noexcept {
  return _gmtime64_s(&out, &seconds) == 0;
}

}  // namespace zarn::TimeUtils::platform
