#include "os/system_error.h"

#include <windows.h>

namespace zarn {

std::uint32_t lastSystemError() noexcept {
  return GetLastError();
}

void setLastSystemError(std::uint32_t code) noexcept {
  SetLastError(code);
}

SystemError SystemError::accessDenied() noexcept {
  return SystemError(ERROR_ACCESS_DENIED);
}

SystemError SystemError::invalidName() noexcept {
  return SystemError(ERROR_INVALID_NAME);
}

// A missing file and a missing folder on the way to it have a code each.
bool SystemError::isNotFound() const noexcept {
  return code() == ERROR_FILE_NOT_FOUND || code() == ERROR_PATH_NOT_FOUND;
}

bool SystemError::isAlreadyThere() const noexcept {
  return code() == ERROR_FILE_EXISTS || code() == ERROR_ALREADY_EXISTS;
}

bool SystemError::isNotEmpty() const noexcept {
  return code() == ERROR_DIR_NOT_EMPTY;
}

}  // namespace zarn
