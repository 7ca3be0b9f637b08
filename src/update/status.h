// What the procedures of the service answer, and how an installer's exit code
// becomes such an answer.
#pragma once

#include <array>
#include <cstdint>

namespace zarn {

enum class Status : std::int32_t {
  Installed = 0,
  /// The installer succeeded and wants a reboot.
  RebootRequired = 30000,
  /// The installer began a reboot.
  RebootInitiated = 30001,
  /// The bundle or its copy was unusable, the installer could not be started, or
  /// it ended with a code that has no status of its own.
  Failed = 30002,
  ExitCodeUnknown = 30003,
  /// The signature of the bundle is not trusted.
  SignatureRefused = 30004,
  /// The bundle was signed by somebody who is not approved.
  SignerRefused = 30005,
};

/// RunInstaller's answer when the installer's exit code could not be read.
inline constexpr std::uint32_t kExitCodeUnknown = 30003;

struct InstallerExit {
  std::uint32_t exitCode;
  Status status;
  /// The update took effect, so the service ends in order to be started anew.
  bool restartsService;
};

inline constexpr std::array<InstallerExit, 4> kInstallerExits = {{
    {0, Status::Installed, true},
    {1641, Status::RebootInitiated, false},  // ERROR_SUCCESS_REBOOT_INITIATED
    {3010, Status::RebootRequired, true},    // ERROR_SUCCESS_REBOOT_REQUIRED
    {kExitCodeUnknown, Status::ExitCodeUnknown, false},
}};

/// Every exit code that the table does not list is a failure.
[[nodiscard]] constexpr InstallerExit judgeExitCode(std::uint32_t exitCode) noexcept {
  for (const InstallerExit& known : kInstallerExits) {
    if (known.exitCode == exitCode) return known;
  }
  return {exitCode, Status::Failed, false};
}

}  // namespace zarn
