#include <utility>

#include "update/install_request.h"
#include "update/installer_logs.h"
#include "update/staged_installer.h"
#include "util/file_utils.h"
#include "util/logging.h"
#include "util/mutex.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

Mutex installMutex;

std::string shown(const std::wstring& path) {
  return printable(StringUtils::utf16to8(path));
}

void logCheck(const std::wstring& path) {
  logLine(LogLevel::Debug, "CheckBundle() from UpdateInterface: %s", shown(path));
}

bool isAcceptableBundle(const std::wstring& path) {
  const auto bytes = static_cast<std::int64_t>(FileUtils::fileSize(StringUtils::utf16to8(path)));
  if (!isAcceptableBundleSize(bytes)) {
    logLine(LogLevel::Error, "Provided bundle is too large.");
    return false;
  }
  if (!hasBundleExtension(path)) {
    logLine(LogLevel::Error, "Provided bundle has invalid extension.");
    return false;
  }
  return true;
}

/// "\\server\...", "\\.\pipe\...", "\??\pipe\..." and their like, which may lead to a file of another
/// process's making.
bool leavesTheDrives(const std::wstring& path) {
  const auto isSeparator = [](wchar_t c) { return c == L'\\' || c == L'/'; };
  return path.size() >= 2 && isSeparator(path[0]) && (isSeparator(path[1]) || path[1] == L'?');
}

}  // namespace

InstallRequest::InstallRequest(InstallCollaborators collaborators)
    : collaborators_(std::move(collaborators)) {}

Status InstallRequest::Install(const std::wstring& bundlePath, std::int32_t& exitCode) const {
  const MutexLock lock(installMutex);
  const LogTag serviceTag("UpdateService");
  const LogTag installTag("Install");
  logLine(LogLevel::Debug, "bundlePath: %s", shown(bundlePath));

  // Open until the request ends, so that nobody changes what is examined here.
  const FileHandle bundle = openBundle(bundlePath);
  if (!bundle) {
    logWin32Error(LogLevel::Error, "CreateFileW() failed.");
    return Status::Failed;
  }
  if (!isAcceptableBundle(bundlePath)) return Status::Failed;
  const std::wstring stagedPath = stagedInstallerPath();
  // By its real name, which the open handle pins: a link on the caller's path could
  // lead somewhere else by now.
  const std::wstring pinnedPath = finalPath(bundle.get());
  if (!copyBundle(pinnedPath.empty() ? bundlePath : pinnedPath, stagedPath)) {
    logWin32Error(LogLevel::Error, "Failed to copy bundle to temp directory.");
    return Status::Failed;
  }
  return installStaged(stagedPath, exitCode);
}

Status InstallRequest::installStaged(const std::wstring& stagedPath, std::int32_t& exitCode) const {
  // From here until the installer has ended nobody can write, rename or delete
  // the copy: what is checked is what runs. Whoever exchanged it before this open
  // only has the exchanged file checked.
  FileHandle copy = openStagedCopy(stagedPath);
  if (!copy) {
    logWin32Error(LogLevel::Error, "CreateFileW() for temp file failed.");
    return Status::Failed;
  }
  if (const Status refusal = CheckBundle(stagedPath); refusal != Status::Installed) return refusal;
  const std::uint32_t installerExit = RunInstaller(stagedPath, collaborators_.runOptions);
  exitCode = static_cast<std::int32_t>(installerExit);
  copy.reset();
  return finish(stagedPath, installerExit);
}

Status InstallRequest::finish(const std::wstring& stagedPath, std::uint32_t exitCode) const {
  if (!FileUtils::deleteFile(StringUtils::utf16to8(stagedPath))) {
    logLine(LogLevel::Warn, "Failed to delete bundle from temp directory.");
  }
  logLine(LogLevel::Debug, "Copying installer logs");
  collectInstallerLogs();
  const InstallerExit judged = judgeExitCode(exitCode);
  if (judged.restartsService) collaborators_.restart();
  return judged.status;
}

Status InstallRequest::CheckBundle(const std::wstring& path) const {
  logCheck(path);
  return runChecks(path);
}

Status InstallRequest::checkCallersBundle(const std::wstring& path) const {
  logCheck(path);
  // Keeps a pipe's server from meeting the checks, which open the path by name.
  // An ordinary file that cannot be opened is left to the checks to report.
  const FileHandle file = openBundle(path);
  const bool isDiskFile = file || (GetLastError() != ERROR_BAD_FILE_TYPE && !leavesTheDrives(path));
  if (!isDiskFile) {
    logWin32Error(LogLevel::Error, "CreateFileW() failed.");
    return Status::SignatureRefused;
  }
  return runChecks(path);
}

Status InstallRequest::runChecks(const std::wstring& path) const {
  if (!collaborators_.checkIntegrity(path).isVerified()) return Status::SignatureRefused;
  if (!collaborators_.checkIdentity(path).isVerified()) return Status::SignerRefused;
  return Status::Installed;
}

}  // namespace zarn
