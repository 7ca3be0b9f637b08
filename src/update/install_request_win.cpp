#include <chrono>
#include <utility>

#include "os/error_text.h"
#include "trust/certificate_identity.h"
#include "trust/certificate_integrity.h"
#include "update/install_request.h"
#include "update/installer_logs.h"
#include "util/exceptions.h"
#include "util/file_utils.h"
#include "util/io_deadline.h"
#include "util/log_win32_error.h"
#include "util/logging.h"
#include "util/mutex.h"
#include "util/printable.h"
#include "util/product_version.h"
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

/// -1 when it cannot be read.
std::int64_t sizeOf(HANDLE file, const std::wstring& path) {
  const IoDeadline deadline(kOpenLimit);
  LARGE_INTEGER bytes{};
  if (GetFileSizeEx(file, &bytes) != 0) return bytes.QuadPart;
  const SystemError error = SystemError::last();
  logLine(LogLevel::Error, "Couldn't get size of file %s: %s", shown(path), systemErrorPhrase(error));
  return -1;
}

bool isAcceptableBundle(HANDLE bundle, const std::wstring& path, InstallRecord& record) {
  const std::int64_t bytes = sizeOf(bundle, path);
  if (bytes >= 0) record.size = static_cast<std::uint64_t>(bytes);
  if (!isAcceptableBundleSize(bytes)) {
    logLine(LogLevel::Error, "Provided bundle is too large.");
    return record.note(Check::Size, Verdict::Refused, kTooLarge.text);
  }
  record.note(Check::Size, Verdict::Passed);
  if (!hasBundleExtension(path)) {
    logLine(LogLevel::Error, "Provided bundle has invalid extension.");
    return record.note(Check::Extension, Verdict::Refused, kNotExe);
  }
  return record.note(Check::Extension, Verdict::Passed);
}

/// Ends a request for which the system refused something, with the line that says so.
Status endWithFailure(InstallRecord& record, Check check, SystemError error, const char* line) {
  record.note(check, Verdict::Failed, describeSystemError(error));
  logSystemFailure(LogLevel::Error, error, "%s", line);
  return Status::Failed;
}

bool noteIntegrity(InstallRecord& record, const TrustResult& result) {
  if (result.isVerified()) return record.note(Check::Integrity, Verdict::Passed);
  return record.note(Check::Integrity, Verdict::Refused,
                     describeSystemError(static_cast<std::uint32_t>(result.code())));
}

/// Also who signed, whatever the answer is.
bool noteIdentity(InstallRecord& record, const IdentityResult& identity) {
  if (identity.signer) {
    record.signerDigest = identity.signer->digest;
    record.signerSubject = identity.signer->subject;
  }
  if (identity.result.isVerified()) return record.note(Check::Identity, Verdict::Passed);
  const Verdict refusal = identity.profile == ProfileState::Had ? Verdict::Refused : Verdict::Failed;
  return record.note(Check::Identity, refusal, whyRefused(identity));
}

/// What is known once the installer has ended.
void noteInstalled(const InstallCollaborators& collaborators, InstallRecord& record, const InstallerEnd& end,
                   const std::string& digest, const std::wstring& stagedPath) {
  record.exitCode = end.code;
  record.installerStarted = end.wasStarted;
  record.sha256 = digest;
  const FileVersion version = readFileVersion(StringUtils::utf16to8(stagedPath));
  record.product = version.product;
  record.productVersion = version.productVersion;
  if (judgeExitCode(end.code).restartsService && version.number) collaborators.installed(*version.number);
}

/// A file's real name, which its open handle pins: what the caller's name leads to may be
/// something else by now.
Result<std::wstring> pinnedName(const FileHandle& file) {
  const IoDeadline deadline(kOpenLimit);
  return finalPath(file.get());
}

/// Hands the record over when the request ends, in whichever way.
class Recording {
 public:
  Recording(const InstallCollaborators& collaborators, const Caller& caller, const std::wstring& bundlePath)
      : collaborators_(collaborators) {
    record_.time = isoTime(std::chrono::system_clock::now());
    record_.caller = caller;
    record_.path = StringUtils::utf16to8(bundlePath);
  }
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;
  ~Recording() {
    record_.durationMilliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start_)
            .count();
    quietly([this] {  // no update depends on its record
      if (collaborators_.record) collaborators_.record(record_);
    });
  }

  InstallRecord& record() noexcept { return record_; }

 private:
  const InstallCollaborators& collaborators_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  InstallRecord record_;
};

void tidyUp(const std::wstring& stagedPath) {
  if (!FileUtils::deleteFile(StringUtils::utf16to8(stagedPath))) {
    logLine(LogLevel::Warn, "Failed to delete bundle from temp directory.");
  }
  logLine(LogLevel::Debug, "Copying installer logs");
  collectInstallerLogs();
}

}  // namespace

InstallRequest::InstallRequest(InstallCollaborators collaborators)
    : collaborators_(std::move(collaborators)) {}

Status InstallRequest::Install(const Caller& caller, const std::wstring& bundlePath,
                               std::int32_t& exitCode) const {
  const MutexLock lock(installMutex);
  const LogTag serviceTag("UpdateService");
  const LogTag installTag("Install");
  logLine(LogLevel::Debug, "bundlePath: %s", shown(bundlePath));

  const Outcome outcome = installRecorded(caller, bundlePath, exitCode);
  if (outcome.restartsService) quietly([this] { collaborators_.restart(); });
  return outcome.status;
}

void InstallRequest::refuse(const Caller& caller, const std::wstring& bundlePath, const char* reason) const {
  Recording recording(collaborators_, caller, bundlePath);
  recording.record().reason = std::string("The request was refused: ") + reason + ".";
}

InstallRequest::Outcome InstallRequest::installRecorded(const Caller& caller, const std::wstring& bundlePath,
                                                        std::int32_t& exitCode) const {
  std::shared_ptr<void> announced;  // let go when the request has been recorded
  Recording recording(collaborators_, caller, bundlePath);
  quietly([&] {  // no update depends on being seen
    if (collaborators_.announce) announced = collaborators_.announce(recording.record());
  });
  const Outcome outcome = install(bundlePath, exitCode, recording.record());
  recording.record().status = outcome.status;
  return outcome;
}

InstallRequest::Outcome InstallRequest::install(const std::wstring& bundlePath, std::int32_t& exitCode,
                                                InstallRecord& record) const {
  // Open until the request ends, so that nobody changes what is examined here.
  const auto bundle = collaborators_.openBundle(bundlePath);
  if (!bundle) return {endWithFailure(record, Check::Open, bundle.error(), "CreateFileW() failed.")};
  record.note(Check::Open, Verdict::Passed);
  if (!isAcceptableBundle(bundle->get(), bundlePath, record)) return {Status::Failed};
  const std::wstring stagedPath = stagedInstallerPath();
  const auto pinned = pinnedName(*bundle);
  const auto copied = pinned ? copyBundle(*pinned, stagedPath) : Result<void>(failure(pinned.error()));
  if (!copied)
    return {endWithFailure(record, Check::Copy, copied.error(), "Failed to copy bundle to temp directory.")};
  return installStaged(stagedPath, exitCode, record);
}

InstallRequest::Outcome InstallRequest::installStaged(const std::wstring& stagedPath, std::int32_t& exitCode,
                                                      InstallRecord& record) const {
  // From here until the installer has ended nobody can write, rename or delete
  // the copy: what is checked is what runs. Whoever exchanged it before this open
  // only has the exchanged file checked.
  auto copy = openStagedCopy(stagedPath);
  if (!copy)
    return {endWithFailure(record, Check::Copy, copy.error(), "CreateFileW() for temp file failed.")};
  record.note(Check::Copy, Verdict::Passed);
  BackgroundDigest digest(copy->get());
  const Status judged = CheckBundle(stagedPath, record);
  if (judged != Status::Installed) {
    record.sha256 = digest.finish();
    return {judged};
  }
  const InstallerEnd installer = RunInstaller(stagedPath, collaborators_.runOptions);
  exitCode = static_cast<std::int32_t>(installer.code);
  // From here on nothing that fails may change the answer or keep the service from restarting.
  quietly([&] { noteInstalled(collaborators_, record, installer, digest.finish(), stagedPath); });
  copy->reset();
  quietly([&] { tidyUp(stagedPath); });
  const StatusFacts& judgement = judgeExitCode(installer.code);
  return {judgement.status, judgement.restartsService};
}

Status InstallRequest::CheckBundle(const std::wstring& path, InstallRecord& record) const {
  logCheck(path);
  return runChecks(path, path, record);
}

Status InstallRequest::checkCallersBundle(const std::wstring& path) const {
  logCheck(path);
  // Held while it is checked by its real name, so that what the caller's name leads to
  // does not matter any more.
  const auto file = collaborators_.openBundle(path);
  const auto pinned = file ? pinnedName(*file) : Result<std::wstring>(failure(file.error()));
  if (!pinned) {
    static_cast<void>(integrityOfUnopened(path, pinned.error()));
    return Status::SignatureRefused;
  }
  InstallRecord unused;
  return runChecks(*pinned, path, unused);
}

Status InstallRequest::runChecks(const std::wstring& path, const std::wstring& shownAs,
                                 InstallRecord& record) const {
  if (!noteIntegrity(record, collaborators_.checkIntegrity(path, shownAs))) return Status::SignatureRefused;
  if (!noteIdentity(record, collaborators_.checkIdentity(path))) return Status::SignerRefused;
  const PolicyResult policy = collaborators_.checkPolicy(StringUtils::utf16to8(path));
  if (policy.isAllowed()) return record.note(Check::Policy, Verdict::Passed), Status::Installed;
  record.note(Check::Policy, Verdict::Refused, policy.sentence());
  return Status::SignerRefused;
}

}  // namespace zarn
