// The calling thread's last system error and the system's words for it: Win32
// codes on Windows, errno in the native build.
#pragma once

#include <boost/system/error_code.hpp>
#include <cstdint>
#include <string>

namespace zarn {

[[nodiscard]] std::uint32_t lastSystemError() noexcept;
void setLastSystemError(std::uint32_t code) noexcept;

/// The system's text for `code`, UTF-8, with the line break that the system puts
/// at its end; empty when the system has none.
[[nodiscard]] std::string systemErrorText(std::uint32_t code);

/// The same without trailing line breaks and blanks, for use inside a sentence.
[[nodiscard]] std::string systemErrorPhrase(std::uint32_t code);

/// The same for what Boost reports, whose own message() is in the encoding of the
/// user's language on Windows.
[[nodiscard]] std::string systemErrorPhrase(const boost::system::error_code& error);

/// A code as Windows shows it: decimal, and hexadecimal where that is how it is known.
[[nodiscard]] std::string codeText(std::uint32_t code);

/// "0x800b0100, No signature was present in the subject."
[[nodiscard]] std::string describeSystemError(std::uint32_t code);

/// The code of a call that is known to have failed. Some calls fail and leave the
/// last error at 0; a failure must never read as success, so 0 becomes 31
/// (ERROR_GEN_FAILURE).
[[nodiscard]] constexpr std::uint32_t failureCode(std::uint32_t lastError) noexcept {
  return lastError != 0 ? lastError : 31U;
}

/// The system's identifier of the calling thread, as it appears in log lines.
[[nodiscard]] std::uint32_t currentThreadId() noexcept;

/// Names the calling thread for debuggers; at most 15 characters are kept everywhere.
void setCurrentThreadName(const char* name) noexcept;

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
