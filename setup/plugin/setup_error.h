// The one way in which a step of setup fails.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace zarn::setup {

/// Exit codes of setup and uninstaller: those that software distribution already
/// knows from Windows Installer and the system.
enum class ExitCode : std::uint32_t {
  Done = 0,
  NeedsAdministrator = 740,
  NotStarted = 1053,
  Failed = 1603,
  NotInstalled = 1605,
  Busy = 1618,
  UnsupportedSystem = 1633,
  BadArguments = 1639,
};

/// A step that failed: the exit code of the whole run and one sentence for the
/// administrator.
class SetupError : public std::exception {
 public:
  SetupError(ExitCode code, std::wstring sentence) : code_(code), sentence_(std::move(sentence)) {}

  [[nodiscard]] ExitCode code() const noexcept { return code_; }
  [[nodiscard]] const std::wstring& sentence() const noexcept { return sentence_; }
  [[nodiscard]] const char* what() const noexcept override { return "setup step failed"; }

 private:
  ExitCode code_;
  std::wstring sentence_;
};

/// "<what>: <the system's words> (error <number>)." with the exit code Failed.
/// `error` is the system's error code, of a call that is known to have failed.
[[nodiscard]] SetupError systemFailure(const std::wstring& what, std::uint32_t error);

}  // namespace zarn::setup
