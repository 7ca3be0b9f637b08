#include <chrono>
#include <utility>

#include "update/file_digest.h"
#include "update/install_request.h"
#include "update/installer_logs.h"
#include "update/staged_installer.h"
#include "util/file_utils.h"
#include "util/file_version.h"
#include "util/logging.h"
#include "util/mutex.h"
#include "util/printable.h"
#include "util/string_utils.h"
#include "util/system_error.h"

namespace zarn {
namespace {

Mutex installMutex;

std::string shown(const std::wstring& path) {
  return printable(StringUtils::utf16to8(path));
}

void logCheck(const std::wstring& path) {
  logLine(LogLevel::Debug, "CheckBundle() from UpdateInterface: %s", shown(path));
}

bool isAcceptableBundle(const std::wstring& path, InstallRecord& record) {
  const auto bytes = static_cast<std::int64_t>(FileUtils::fileSize(StringUtils::utf16to8(path)));
  if (bytes >= 0) record.size = static_cast<std::uint64_t>(bytes);
  if (!isAcceptableBundleSize(bytes)) {
    logLine(LogLevel::Error, "Provided bundle is too large.");
    return record.note(Check::Size, Verdict::Refused, "more than 1 GiB");
  }
  record.note(Check::Size, Verdict::Passed);
  if (!hasBundleExtension(path)) {
    logLine(LogLevel::Error, "Provided bundle has invalid extension.");
    return record.note(Check::Extension, Verdict::Refused, "not \".exe\" in these letters");
  }
  return record.note(Check::Extension, Verdict::Passed);
}

/// Notes a system call that failed, whose last error stays as it was.
void noteFailure(InstallRecord& record, Check check) {
  const LastErrorKeeper keeper;
  record.note(check, Verdict::Failed, describeSystemError(failureCode(lastSystemError())));
}

/// Notes the answer of a trust check, `refusal` unless it is "trusted"; true when it is.
bool noteAnswer(InstallRecord& record, Check check, const TrustResult& result, Verdict refusal) {
  if (result.isVerified()) return record.note(check, Verdict::Passed);
  return record.note(check, refusal, describeSystemError(static_cast<std::uint32_t>(result.code())));
}

/// What is known once the installer has ended. From there on only the record may suffer.
void noteInstalled(InstallRecord& record, std::uint32_t exitCode, const std::string& digest,
                   const std::wstring& stagedPath) noexcept {
  try {
    record.exitCode = exitCode;
    record.sha256 = digest;
    const FileVersion version = readFileVersion(StringUtils::utf16to8(stagedPath));
    record.product = version.product;
    record.productVersion = version.productVersion;
  } catch (...) {  // NOLINT(bugprone-empty-catch): no update depends on its record
  }
}

/// Hands the record over when the request ends, in whichever way.
class Recording {
 public:
  Recording(const InstallCollaborators& collaborators, const std::wstring& bundlePath)
      : collaborators_(collaborators) {
    record_.began = std::chrono::system_clock::now();
    record_.path = StringUtils::utf16to8(bundlePath);
  }
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;
  ~Recording() {
    try {
      record_.duration =
          std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start_);
      if (collaborators_.record) collaborators_.record(record_);
    } catch (...) {  // NOLINT(bugprone-empty-catch): no update depends on its record
    }
  }

  InstallRecord& record() noexcept { return record_; }

 private:
  const InstallCollaborators& collaborators_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  InstallRecord record_;
};

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

  const Outcome outcome = installRecorded(bundlePath, exitCode);
  if (outcome.restartsService) collaborators_.restart();
  return outcome.status;
}

InstallRequest::Outcome InstallRequest::installRecorded(const std::wstring& bundlePath,
                                                        std::int32_t& exitCode) const {
  Recording recording(collaborators_, bundlePath);
  const Outcome outcome = install(bundlePath, exitCode, recording.record());
  recording.record().status = outcome.status;
  return outcome;
}

InstallRequest::Outcome InstallRequest::install(const std::wstring& bundlePath, std::int32_t& exitCode,
                                                InstallRecord& record) const {
  // Open until the request ends, so that nobody changes what is examined here.
  const FileHandle bundle = openBundle(bundlePath);
  if (!bundle) {
    noteFailure(record, Check::Open);
    logWin32Error(LogLevel::Error, "CreateFileW() failed.");
    return {Status::Failed};
  }
  record.note(Check::Open, Verdict::Passed);
  if (!isAcceptableBundle(bundlePath, record)) return {Status::Failed};
  const std::wstring stagedPath = stagedInstallerPath();
  // By its real name, which the open handle pins: a link on the caller's path could
  // lead somewhere else by now.
  const std::wstring pinnedPath = finalPath(bundle.get());
  if (!copyBundle(pinnedPath.empty() ? bundlePath : pinnedPath, stagedPath)) {
    noteFailure(record, Check::Copy);
    logWin32Error(LogLevel::Error, "Failed to copy bundle to temp directory.");
    return {Status::Failed};
  }
  return installStaged(stagedPath, exitCode, record);
}

InstallRequest::Outcome InstallRequest::installStaged(const std::wstring& stagedPath, std::int32_t& exitCode,
                                                      InstallRecord& record) const {
  // From here until the installer has ended nobody can write, rename or delete
  // the copy: what is checked is what runs. Whoever exchanged it before this open
  // only has the exchanged file checked.
  FileHandle copy = openStagedCopy(stagedPath);
  if (!copy) {
    noteFailure(record, Check::Copy);
    logWin32Error(LogLevel::Error, "CreateFileW() for temp file failed.");
    return {Status::Failed};
  }
  record.note(Check::Copy, Verdict::Passed);
  BackgroundDigest digest(copy.get());
  const Status judged = CheckBundle(stagedPath, record);
  if (judged != Status::Installed) {
    record.sha256 = digest.finish();
    return {judged};
  }
  const std::uint32_t installerExit = RunInstaller(stagedPath, collaborators_.runOptions);
  exitCode = static_cast<std::int32_t>(installerExit);
  noteInstalled(record, installerExit, digest.finish(), stagedPath);
  copy.reset();
  if (!FileUtils::deleteFile(StringUtils::utf16to8(stagedPath))) {
    logLine(LogLevel::Warn, "Failed to delete bundle from temp directory.");
  }
  logLine(LogLevel::Debug, "Copying installer logs");
  collectInstallerLogs();
  const InstallerExit judgement = judgeExitCode(installerExit);
  return {judgement.status, judgement.restartsService};
}

Status InstallRequest::CheckBundle(const std::wstring& path, InstallRecord& record) const {
  logCheck(path);
  return runChecks(path, record);
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
  InstallRecord unused;
  return runChecks(path, unused);
}

Status InstallRequest::runChecks(const std::wstring& path, InstallRecord& record) const {
  const TrustResult integrity = collaborators_.checkIntegrity(path);
  if (!noteAnswer(record, Check::Integrity, integrity, Verdict::Refused)) return Status::SignatureRefused;
  IdentityFacts facts;
  const TrustResult identity = collaborators_.checkIdentity(path, facts);
  if (facts.signer) {
    record.signerDigest = facts.signer->digest;
    record.signerSubject = facts.signer->subject;
  }
  const Verdict refusal = facts.profileWasHad ? Verdict::Refused : Verdict::Failed;
  return noteAnswer(record, Check::Identity, identity, refusal) ? Status::Installed : Status::SignerRefused;
}

}  // namespace zarn
