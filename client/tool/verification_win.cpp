#include "client/tool/verification_win.h"

#include <windows.h>

#include <utility>

#include "client/tool/explanations.h"
#include "client/tool/text.h"
#include "client/update_client.h"
#include "os/error_text.h"
#include "trust/certificate_identity.h"
#include "trust/certificate_integrity.h"
#include "trust/certificate_profile.h"
#include "trust/update_policy.h"
#include "update/bundle.h"
#include "util/string_utils.h"
#include "util/structured_exception.h"

namespace zarn::tool {

Verification::Verification(std::wstring path, const CapturedLog& log, TrustApi& api)
    : path_(std::move(path)), log_(log), api_(api) {}

std::int32_t Verification::run() {
  if (!open() || !size() || !extension()) return client::kFailed;
  signatureHolds_ = integrity();
  if (!signatureHolds_) return findSigner(), client::kSignatureRefused;
  return checkIdentity() && policy() ? client::kInstalled : client::kSignerRefused;
}

bool Verification::open() {
  auto file = openBundle(path_);
  if (!file) return stop(kOpen, "failed", file.error().code());
  file_ = std::move(*file);
  return pass(kOpen, "plain file, held against writing");
}

bool Verification::size() {
  LARGE_INTEGER size{};
  if (GetFileSizeEx(file_.get(), &size) != 0) bytes_ = size.QuadPart;
  if (!isAcceptableBundleSize(bytes_)) {
    return stop(kSize, "refused", "more than 1 GiB", "Use a bundle of at most 1 GiB");
  }
  return pass(kSize, bytes_ < 0 ? "unknown" : fileSize(static_cast<std::uint64_t>(bytes_)));
}

bool Verification::extension() {
  if (hasBundleExtension(path_)) return pass(kExtension, ".exe");
  return stop(kExtension, "refused", "not \".exe\" in these letters",
              "Rename the file so that it ends in \".exe\"");
}

bool Verification::integrity() {
  std::optional<TrustResult> result;
  const std::uint32_t exception =
      callCatching([&] { result = CheckCertificateIntegrity(api_, path_); }, catchEvery);
  if (!result) return stopForException(kIntegrity, exception);
  // Not what the system compared: providers differ in that, and none says.
  if (result->isVerified()) return pass(kIntegrity, "accepted by the system");
  return stop(kIntegrity, "refused", static_cast<std::uint32_t>(result->code()));
}

bool Verification::checkIdentity() {
  const std::size_t errorsBefore = log_.errors().size();
  const auto check = [this] { identity_ = CheckCertificateIdentity(api_, path_, FetchCertificateProfile); };
  const std::uint32_t exception = callCatching(check, catchEvery);
  if (!identity_) return stopForException(kIdentity, exception);
  signer_ = identity_->signer;
  if (identity_->result.isVerified()) return pass(kIdentity, "the signer's digest is approved");
  switch (identity_->profile) {
    case ProfileState::NotAsked:
      return stop(kIdentity, "failed", static_cast<std::uint32_t>(identity_->result.code()));
    case ProfileState::NotHad:
      return stop(kIdentity, "failed", "no approved digests to be had: " + log_.errors().at(errorsBefore),
                  "Check the way to the account service, and Resources\\cacert.pem beside this program");
    case ProfileState::Had:
      break;
  }
  return stop(kIdentity, "refused", "the signer's digest is not approved",
              "Use a bundle that an approved certificate signed, or have the digest approved");
}

bool Verification::policy() {
  const PolicyResult result = CheckUpdatePolicy(StringUtils::utf16to8(path_));
  if (result.isAllowed()) return pass(kPolicy, "allowed on this machine");
  return stop(kPolicy, "refused", result.sentence(), "Use a bundle that this machine's policy allows");
}

/// Who signed is worth knowing also when the signature is refused. The answer of
/// this check is of no account: nobody is approved in it.
void Verification::findSigner() {
  const auto find = [this] {
    signer_ = CheckCertificateIdentity(api_, path_, [] { return ApprovedDigests(); }).signer;
  };
  static_cast<void>(callCatching(find, catchEvery));
}

bool Verification::pass(StepIndex step, std::string detail) {
  steps_.at(step).verdict = "passed";
  steps_.at(step).detail = std::move(detail);
  return true;
}

bool Verification::stop(StepIndex step, const char* verdict, std::string detail, std::string advice) {
  steps_.at(step).verdict = verdict;
  steps_.at(step).detail = std::move(detail);
  advice_ = std::move(advice);
  return false;
}

bool Verification::stop(StepIndex step, const char* verdict, std::uint32_t code) {
  const Explanation* row = explain(CodeKind::Trust, code);
  if (row == nullptr) row = explain(CodeKind::System, code);
  if (row == nullptr) return stop(step, verdict, describeSystemError(code), "");
  return stop(step, verdict, codeText(code) + ", " + std::string(row->meaning), std::string(row->advice));
}

/// The check broke off in the middle: what it held stays open as long as this process.
bool Verification::stopForException(StepIndex step, std::uint32_t exception) {
  return stop(step, "failed", "the check failed inside the system: " + codeText(exception),
              "Do not run the bundle; download it again");
}

}  // namespace zarn::tool
