#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "log/log_platform.h"

namespace zarn::platform {

// The time of the system's last tick, as the product's clock tells it. The time in
// between would cost a third of the whole call.
LogTime currentLogTime() noexcept {
  std::timespec now{};
  ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return {now.tv_sec, static_cast<std::uint16_t>(now.tv_nsec / 1'000'000)};
}

// Waking a sleeping thread costs the caller of a log line many times the line itself.
std::chrono::microseconds writerPollInterval() noexcept {
  return std::chrono::microseconds(100);
}

bool writeThrough(std::FILE& file, std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t written = ::write(::fileno(&file), text.data(), text.size());
    if (written <= 0) return false;  // interrupted, too: that is how a deadline ends it
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool emptyFile(std::FILE& file) noexcept {
  const int descriptor = ::fileno(&file);
  return ::ftruncate(descriptor, 0) == 0 && ::lseek(descriptor, 0, SEEK_SET) == 0;
}

void endAfterFatalError() noexcept {
  std::abort();
}

}  // namespace zarn::platform
