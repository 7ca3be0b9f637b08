#include <utility>

#include "os/error_text.h"
#include "os/handles_win.h"
#include "os/launch_guard_win.h"
#include "update/run_installer.h"
#include "update/status.h"
#include "util/exceptions.h"
#include "util/log_win32_error.h"
#include "util/logging.h"

namespace zarn {
namespace {

struct InstallerProcess {
  KernelHandle process;
  KernelHandle thread;
};

Result<InstallerProcess> startInstaller(const std::wstring& path) {
  // Unquoted: the installer is named by the application name, and our fixed
  // staging path reaches it as its first word.
  std::wstring commandLine = path + L" /quiet /norestart";
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  const os::LaunchGuard guard;
  if (CreateProcessW(path.c_str(), commandLine.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                     nullptr, &startup, &started) == 0) {
    return lastFailure();
  }
  return InstallerProcess{KernelHandle(started.hProcess), KernelHandle(started.hThread)};
}

}  // namespace

Result<std::uint32_t> readExitCode(void* process) {
  DWORD code = 0;
  if (GetExitCodeProcess(process, &code) == 0) return lastFailure();
  return code;
}

InstallerEnd RunInstaller(const std::wstring& installerPath, const RunInstallerOptions& options) {
  auto installer = startInstaller(installerPath);
  if (!installer) {
    return {logSystemFailure(LogLevel::Error, installer.error(),
                             "UpdateService::RunInstaller: CreateProcess failed"),
            false};
  }
  // While an installer runs and after it has, a line that cannot be had changes nothing.
  quietly([] { logLine(LogLevel::Debug, "Create Process Success! Waiting for process to complete."); });
  const DWORD waited = WaitForSingleObject(installer->process.get(), options.waitMilliseconds);
  if (waited == WAIT_TIMEOUT) {
    quietly([] { logLine(LogLevel::Error, "Wait for installer timed out."); });
  } else if (waited == WAIT_FAILED) {
    // As after a time-out, the exit code of an installer that still runs is no success.
    quietly(
        [] { logWin32Error(LogLevel::Error, "UpdateService::RunInstaller: WaitForSingleObject failed"); });
  }

  const auto exitCode = options.readExitCode(installer->process.get());
  if (!exitCode) {
    quietly([] { logLine(LogLevel::Error, "Failed to get exit code"); });
    quietly([&] {
      logSystemFailure(
          LogLevel::Error, exitCode.error(),
          "UpdateService::RunInstaller: GetExitCodeProcess failed while retrieving exit code from "
          "installer.");
    });
    // Handles in doubt are not closed: they could be somebody else's by now.
    static_cast<void>(installer->process.release());
    static_cast<void>(installer->thread.release());
    return {kExitCodeUnknown, true};
  }
  quietly([code = *exitCode] {
    logLine(LogLevel::Debug, "Installer exit code:  %d - %s", static_cast<std::int32_t>(code),
            systemErrorPhrase(code));
  });
  return {*exitCode, true};
}

}  // namespace zarn
