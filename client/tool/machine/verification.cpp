#include "client/tool/machine/verification.h"

#include <windows.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "client/tool/machine/service.h"
#include "client/tool/machine/within.h"
#include "client/tool/report/explanations.h"
#include "client/tool/report/settings.h"
#include "client/tool/report/text.h"
#include "os/error_text.h"
#include "os/handles_win.h"
#include "prefs/preferences.h"
#include "trust/account_service_host.h"
#include "trust/certificate_identity.h"
#include "trust/certificate_integrity.h"
#include "trust/certificate_profile.h"
#include "trust/trust_result.h"
#include "trust/update_policy.h"
#include "update/bundle.h"
#include "update/install_record.h"
#include "util/string_utils.h"
#include "util/structured_exception.h"

namespace zarn::tool {
namespace {

/// One file on its way through the checks. Each check notes how it ended and says
/// whether the next one is to be made.
class Verification {
 public:
  Verification(const std::wstring& path, const CapturedLog& log, TrustApi& api)
      : path_(path), log_(log), api_(api) {}

  /// What a check would decide, which asks for neither size nor name.
  WorkedOut check() {
    WorkedOut found;
    found.status = open() ? decideBySigner() : Status::SignatureRefused;
    const auto decided = std::ranges::find_if(record_.checks, [](const CheckRecord& step) {
      return step.verdict == nameOf(Verdict::Refused) || step.verdict == nameOf(Verdict::Failed);
    });
    if (decided != record_.checks.end()) found.decided = *decided;
    return found;
  }

  VerificationReport run() {
    report_.status = decide();
    report_.host = withoutCredentials(accountServiceHost());
    report_.log = log_.lines();
    report_.steps = std::move(record_.checks);
    // Nothing is copied here, so that this check cannot be made.
    std::erase_if(report_.steps, [](const CheckRecord& step) { return step.name == nameOf(Check::Copy); });
    return std::move(report_);
  }

 private:
  Status decide() {
    if (!open() || !size() || !extension()) return Status::Failed;
    return decideBySigner();
  }

  Status decideBySigner() {
    report_.signatureHolds = integrity();
    if (!report_.signatureHolds) {
      findSigner();
      return Status::SignatureRefused;
    }
    return identity() && policy() ? Status::Installed : Status::SignerRefused;
  }

  bool open() {
    auto file = openBundle(path_);
    if (!file) return stop(Check::Open, Verdict::Failed, file.error().code());
    file_ = std::move(*file);
    return pass(Check::Open, "plain file, held against writing");
  }

  bool size() {
    LARGE_INTEGER size{};
    if (GetFileSizeEx(file_.get(), &size) != 0) report_.bytes = size.QuadPart;
    if (!isAcceptableBundleSize(report_.bytes)) {
      return stop(Check::Size, Verdict::Refused, std::string(kTooLarge));
    }
    return pass(Check::Size,
                report_.bytes < 0 ? "unknown" : fileSize(static_cast<std::uint64_t>(report_.bytes)));
  }

  bool extension() {
    if (hasBundleExtension(path_)) return pass(Check::Extension, ".exe");
    return stop(Check::Extension, Verdict::Refused, kNotExe);
  }

  bool integrity() {
    std::optional<TrustResult> result;
    const std::uint32_t exception =
        callCatching([&] { result = CheckCertificateIntegrity(api_, path_); }, catchEvery);
    if (!result) return stopForException(Check::Integrity, exception);
    // Not what the system compared: providers differ in that, and none says.
    if (result->isVerified()) return pass(Check::Integrity, "accepted by the system");
    return stop(Check::Integrity, Verdict::Refused, static_cast<std::uint32_t>(result->code()));
  }

  bool identity() {
    std::optional<IdentityResult> checked;
    const std::uint32_t exception = callCatching(
        [&] { checked = CheckCertificateIdentity(api_, path_, FetchCertificateProfile); }, catchEvery);
    if (!checked) return stopForException(Check::Identity, exception);
    noteSigner(*checked);
    const bool isApproved = checked->result.isVerified();
    const bool isHad = checked->profile == ProfileState::Had;
    if (checked->profile != ProfileState::NotAsked)
      report_.profile = {checked->approvedDigests, isApproved, isHad};
    if (isApproved) return pass(Check::Identity, "the signer's digest is approved");
    if (checked->profile == ProfileState::NotAsked)
      return stop(Check::Identity, Verdict::Failed, static_cast<std::uint32_t>(checked->result.code()));
    return stop(Check::Identity, isHad ? Verdict::Refused : Verdict::Failed, whyRefused(*checked));
  }

  bool policy() {
    const PolicyResult result = CheckUpdatePolicy(StringUtils::utf16to8(path_));
    if (result.isAllowed()) return pass(Check::Policy, "allowed on this machine");
    return stop(Check::Policy, Verdict::Refused, result.sentence());
  }

  /// Who signed is worth knowing also when the signature is refused. The answer of
  /// this check is of no account: nobody is approved in it.
  void findSigner() {
    const auto find = [this] {
      noteSigner(CheckCertificateIdentity(api_, path_, [] { return ApprovedDigests(); }));
    };
    static_cast<void>(callCatching(find, catchEvery));
  }

  void noteSigner(const IdentityResult& checked) {
    if (checked.signer) report_.signer = {checked.signer->digest, checked.signer->subject};
  }

  bool pass(Check check, std::string detail) {
    return record_.note(check, Verdict::Passed, std::move(detail));
  }

  bool stop(Check check, Verdict verdict, std::string detail) {
    return record_.note(check, verdict, std::move(detail));
  }

  bool stop(Check check, Verdict verdict, std::uint32_t code) {
    const Explanation* const row = explain(CodeKind::Trust, CodeKind::System, code);
    return stop(
        check, verdict,
        row == nullptr ? describeSystemError(code) : codeText(code) + ", " + std::string(row->meaning));
  }

  /// The check broke off in the middle: what it held stays open as long as this process.
  bool stopForException(Check check, std::uint32_t exception) {
    return stop(check, Verdict::Failed, "the check failed inside the system: " + codeText(exception));
  }

  const std::wstring& path_;
  const CapturedLog& log_;
  TrustApi& api_;
  /// Keeps the file as it is from the first check to the last.
  FileHandle file_;
  InstallRecord record_;
  VerificationReport report_;
};

}  // namespace

VerificationReport verifyBundle(const std::wstring& path, const CapturedLog& log, TrustApi& api) {
  return Verification(path, log, api).run();
}

const CapturedLog& beginVerification() {
  adoptServiceEnvironment();
  // The service's settings are its account's; this user's must not steer what is worked out here.
  Preferences::useTestStore(true);
  // Never destroyed: the HTTP client's threads may log as long as the process lives.
  return *std::make_unique<CapturedLog>().release();
}

WorkedOut workOutCheck(const std::wstring& path, std::chrono::seconds limit) {
  const CapturedLog& log = beginVerification();
  const auto check = [path, &log] {
    try {
      return Verification(path, log, systemTrustApi()).check();
    } catch (const std::exception& error) {
      return WorkedOut{Status::Failed, {}, error.what()};
    }
  };
  auto found = within<WorkedOut>(limit, check);
  const std::string late = "it took longer than " + duration(std::chrono::milliseconds(limit).count());
  return found ? std::move(*found) : WorkedOut{Status::Failed, {}, late};
}

std::string whyNotInstallable(const std::wstring& path) {
  if (!hasBundleExtension(path)) return kNotExe;
  WIN32_FILE_ATTRIBUTE_DATA found{};
  if (GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &found) == 0) return {};
  const auto bytes =
      static_cast<std::int64_t>(std::uint64_t{found.nFileSizeHigh} << 32U | found.nFileSizeLow);
  return isAcceptableBundleSize(bytes) ? "" : kTooLarge.text;
}

}  // namespace zarn::tool
