#include "os/clock.h"

namespace zarn::os {

// The time of the system's last tick, as the product's clock tells it. The time in
// between would cost a third of a whole log call.
WallTime wallTime() noexcept {
  std::timespec now{};
  ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return {now.tv_sec, static_cast<std::uint16_t>(now.tv_nsec / 1'000'000)};
}

bool localTime(std::int64_t seconds, std::tm& out) noexcept {
  return localtime_r(&seconds, &out) != nullptr;
}

bool utcTime(std::int64_t seconds, std::tm& out) noexcept {
  return gmtime_r(&seconds, &out) != nullptr;
}

// Waking a sleeping thread costs the caller of a log line many times the line itself.
std::chrono::microseconds pollInterval() noexcept {
  return std::chrono::microseconds(100);
}

}  // namespace zarn::os
