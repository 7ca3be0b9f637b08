#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "util/system_error.h"

namespace zarn {

std::uint32_t lastSystemError() noexcept {
  return static_cast<std::uint32_t>(errno);
}

void setLastSystemError(std::uint32_t code) noexcept {
  errno = static_cast<int>(code);
}

std::string systemErrorText(std::uint32_t code) {
  return std::generic_category().message(static_cast<int>(code)) + "\n";
}

std::uint32_t currentThreadId() noexcept {
  thread_local const auto id = static_cast<std::uint32_t>(::syscall(SYS_gettid));
  return id;
}

void setCurrentThreadName(const char* name) noexcept {
  ::pthread_setname_np(::pthread_self(), name);
}

}  // namespace zarn
