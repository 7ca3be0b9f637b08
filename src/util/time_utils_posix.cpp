#include "util/time_utils.h"

namespace zarn::TimeUtils::platform {

bool localTime(std::int64_t seconds, std::tm& out) noexcept {
  return localtime_r(&seconds, &out) != nullptr;
}

bool utcTime(std::int64_t seconds, std::tm& out) noexcept {
  return gmtime_r(&seconds, &out) != nullptr;
}

}  // namespace zarn::TimeUtils::platform
