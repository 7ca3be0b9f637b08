// Runs a verified installer silently and waits for it.
#pragma once

#include <cstdint>
#include <string>

namespace zarn {

/// Ten minutes.
inline constexpr std::uint32_t kInstallerWaitMilliseconds = 600'000;

/// Reads a process's exit code, 259 while it runs. False, with the last error set, on failure.
bool readExitCode(void* process, std::uint32_t& exitCode);

/// What tests shorten or make fail.
struct RunInstallerOptions {
  std::uint32_t waitMilliseconds = kInstallerWaitMilliseconds;
  bool (*readExitCode)(void* process, std::uint32_t& exitCode) = zarn::readExitCode;
};

/// Returns the installer's exit code; the Win32 error when it could not be
/// started; 30003 when its exit code could not be read. An installer that outlasts
/// the wait is left running, and its code is 259. It runs under the service's own
/// account, without a window.
std::uint32_t RunInstaller(const std::wstring& installerPath, const RunInstallerOptions& options = {});

}  // namespace zarn
