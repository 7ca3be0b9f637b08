// The one way to fail: a value, or the error for which the system did not give one.
//
//   Result<FileHandle> file = openBundle(path);
//   if (!file) logLine(LogLevel::Error, "...: %s", describeSystemError(file.error().code()));
//
// Codes are Win32's on Windows and errno in the native build; their words are in
// os/error_text.h. Between our own functions errors travel in results: the thread's
// last error is looked at right behind a call of the system and nowhere else.
#pragma once

#include <cstdint>
#include <tl/expected.hpp>
#include <utility>

namespace zarn {

/// The code of a call that is known to have failed. Some calls fail and leave the
/// last error at 0; a failure must never read as success, so 0 becomes 31
/// (ERROR_GEN_FAILURE).
[[nodiscard]] constexpr std::uint32_t failureCode(std::uint32_t lastError) noexcept {
  return lastError != 0 ? lastError : 31U;
}

[[nodiscard]] std::uint32_t lastSystemError() noexcept;
void setLastSystemError(std::uint32_t code) noexcept;

/// Why a call failed. There is no such object for success: a code is never 0.
class SystemError {
 public:
  explicit constexpr SystemError(std::uint32_t code) noexcept : reported_(code) {}

  /// The thread's last error; right behind the call that failed.
  [[nodiscard]] static SystemError last() noexcept { return SystemError(lastSystemError()); }

  // Our own refusals, as the system would say them.
  [[nodiscard]] static SystemError accessDenied() noexcept;
  [[nodiscard]] static SystemError invalidName() noexcept;

  [[nodiscard]] constexpr std::uint32_t code() const noexcept { return failureCode(reported_); }
  /// What the system said, which is 0 where it said nothing. For log lines only.
  [[nodiscard]] constexpr std::uint32_t reported() const noexcept { return reported_; }
  /// Whether it says that there is nothing of a name.
  [[nodiscard]] bool isNotFound() const noexcept;
  /// Whether it says that something stands where something was to be made.
  [[nodiscard]] bool isAlreadyThere() const noexcept;
  /// Whether it says that a folder still holds something.
  [[nodiscard]] bool isNotEmpty() const noexcept;

  friend constexpr bool operator==(SystemError a, SystemError b) noexcept { return a.code() == b.code(); }

 private:
  std::uint32_t reported_;
};

/// A value, or why there is none. The compiler warns where nobody looks at one.
template <typename T>
class [[nodiscard]] Result : public tl::expected<T, SystemError> {
 public:
  using tl::expected<T, SystemError>::expected;
  Result(tl::expected<T, SystemError> other)  // NOLINT(google-explicit-constructor)
      : tl::expected<T, SystemError>(std::move(other)) {}
};

/// What a function that answers with a Result returns when it fails.
[[nodiscard]] constexpr tl::unexpected<SystemError> failure(SystemError error) noexcept {
  return tl::unexpected<SystemError>(error);
}

[[nodiscard]] constexpr tl::unexpected<SystemError> failure(std::uint32_t code) noexcept {
  return failure(SystemError(code));
}

[[nodiscard]] inline tl::unexpected<SystemError> lastFailure() noexcept {
  return failure(SystemError::last());
}

/// For calls that say no more than whether they succeeded.
[[nodiscard]] inline Result<void> resultOf(bool succeeded) noexcept {
  if (succeeded) return {};
  return lastFailure();
}

/// Restores the thread's last error at the end of a scope.
class LastErrorKeeper {
 public:
  LastErrorKeeper() noexcept : saved_(lastSystemError()) {}
  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;
  ~LastErrorKeeper() { setLastSystemError(saved_); }

 private:
  std::uint32_t saved_;
};

}  // namespace zarn
