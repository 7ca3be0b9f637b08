// Runs a verified installer silently and waits for it.
#pragma once

#include <cstdint>
#include <string>

#include "os/system_error.h"

namespace zarn {

/// Ten minutes.
inline constexpr std::uint32_t kInstallerWaitMilliseconds = 600'000;

/// A process's exit code, 259 while it runs.
[[nodiscard]] Result<std::uint32_t> readExitCode(void* process);

/// What tests shorten or make fail.
struct RunInstallerOptions {
  std::uint32_t waitMilliseconds = kInstallerWaitMilliseconds;
  Result<std::uint32_t> (*readExitCode)(void* process) = zarn::readExitCode;
};

/// How an installer came to its end, or did not.
struct InstallerEnd {
  /// Its exit code; the Win32 error when it could not be started; kExitCodeUnknown when
  /// its exit code could not be read.
  std::uint32_t code;
  bool wasStarted;
};

/// An installer that outlasts the wait is left running, and its code is 259. It runs under
/// the service's own account, without a window.
InstallerEnd RunInstaller(const std::wstring& installerPath, const RunInstallerOptions& options = {});

}  // namespace zarn
