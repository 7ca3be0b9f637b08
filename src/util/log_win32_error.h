// Log lines about failed calls of the system: one with what the caller says, one with
// the system's code and words, such as "    Win32 Error: 2 The system cannot find the
// file specified."
#pragma once

#include <cstdint>
#include <string_view>
#include <type_traits>

#include "os/system_error.h"
#include "util/logging.h"

namespace zarn {

namespace detail {
/// Writes the second line.
void logSystemError(LogLevel level, std::uint32_t code) noexcept;
}  // namespace detail

/// For a call whose error is still the thread's last error, which is read before
/// anything here can change it. Returns that error, which may be 0 (see failureCode()).
template <typename... Args>
std::uint32_t logWin32Error(LogLevel level, PrintfFormat<std::type_identity_t<Args>...> format,
                            const Args&... args) {
  const std::uint32_t code = lastSystemError();
  logLine<Args...>(level, format, args...);
  detail::logSystemError(level, code);
  return code;
}

/// For an error that came in a Result: the same two lines, with what the system reported.
/// Returns its code.
template <typename... Args>
std::uint32_t logSystemFailure(LogLevel level, SystemError error,
                               PrintfFormat<std::type_identity_t<Args>...> format, const Args&... args) {
  logLine<Args...>(level, format, args...);
  detail::logSystemError(level, error.reported());
  return error.code();
}

}  // namespace zarn
