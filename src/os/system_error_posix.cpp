#include "os/system_error.h"

#include <cerrno>

namespace zarn {

std::uint32_t lastSystemError() noexcept {
  return static_cast<std::uint32_t>(errno);
}

void setLastSystemError(std::uint32_t code) noexcept {
  errno = static_cast<int>(code);
}

SystemError SystemError::accessDenied() noexcept {
  return SystemError(EACCES);
}

SystemError SystemError::invalidName() noexcept {
  return SystemError(EINVAL);
}

bool SystemError::isNotFound() const noexcept {
  return code() == ENOENT;
}

bool SystemError::isAlreadyThere() const noexcept {
  return code() == EEXIST;
}

// POSIX lets a system choose between the two.
bool SystemError::isNotEmpty() const noexcept {
  return code() == ENOTEMPTY || code() == EEXIST;
}

}  // namespace zarn
