#include <windows.h>

#include <array>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "client/tool/captured_log.h"
#include "client/tool/commands.h"
#include "client/tool/explanations.h"
#include "client/tool/service_call_win.h"
#include "client/tool/service_setup_win.h"
#include "client/tool/text.h"
#include "prefs/preferences.h"
#include "trust/account_service_host.h"
#include "trust/certificate_identity.h"
#include "trust/certificate_integrity.h"
#include "trust/certificate_profile.h"
#include "trust/signer_observer.h"
#include "update/staged_installer.h"
#include "util/printable.h"
#include "util/string_utils.h"
#include "util/system_error.h"

namespace zarn::tool {
namespace {

struct Step {
  const char* name;
  const char* verdict = "not reached";
  std::string detail = {};
};

/// The checks of an install request on one file, in its order, each but the size by
/// the same function; nothing is copied or run. The first that is not passed decides.
class Verification {
 public:
  /// `log` is the process's log and outlives the object.
  Verification(std::wstring path, const CapturedLog& log) : path_(std::move(path)), log_(log) {}

  /// What an install request would answer if it refused; kInstalled for "would be run".
  std::int32_t run() {
    if (!open() || !size() || !extension()) return client::kFailed;
    signatureHolds_ = integrity();
    if (!signatureHolds_) return observeSigner(), client::kSignatureRefused;
    return identity() ? client::kInstalled : client::kSignerRefused;
  }

  [[nodiscard]] const auto& steps() const noexcept { return steps_; }
  /// What to do about the deciding check; a sentence without a full stop.
  [[nodiscard]] const std::string& advice() const noexcept { return advice_; }
  [[nodiscard]] const std::optional<ObservedSigner>& signer() const noexcept { return observer_.signer(); }
  [[nodiscard]] bool signatureHolds() const noexcept { return signatureHolds_; }
  /// The approved digests; nothing when it did not come to that.
  [[nodiscard]] const std::optional<std::set<std::string>>& profile() const noexcept { return profile_; }
  [[nodiscard]] std::int64_t bytes() const noexcept { return bytes_; }

 private:
  enum StepIndex : std::size_t { kOpen, kSize, kExtension, kIntegrity, kIdentity };

  bool open() {
    file_ = openBundle(path_);
    if (file_) return pass(kOpen, "plain file, held against writing");
    return stop(kOpen, "failed", failureCode(lastSystemError()));
  }

  bool size() {
    LARGE_INTEGER size{};
    if (GetFileSizeEx(file_.get(), &size) != 0) bytes_ = size.QuadPart;
    if (!isAcceptableBundleSize(bytes_)) {
      return stop(kSize, "refused", "more than 1 GiB", "Use a bundle of at most 1 GiB");
    }
    return pass(kSize, bytes_ < 0 ? "unknown" : fileSize(static_cast<std::uint64_t>(bytes_)));
  }

  bool extension() {
    if (hasBundleExtension(path_)) return pass(kExtension, ".exe");
    return stop(kExtension, "refused", "not \".exe\" in these letters",
                "Rename the file so that it ends in \".exe\"");
  }

  bool integrity() {
    const TrustResult result = CheckCertificateIntegrity(observer_, path_);
    if (result.isVerified()) return pass(kIntegrity, "accepted by the system: content, chain, revocation");
    return stop(kIntegrity, "refused", static_cast<std::uint32_t>(result.code()));
  }

  bool identity() {
    const std::size_t errorsBefore = log_.errors().size();
    const TrustResult result = CheckCertificateIdentity(observer_, path_, [this] {
      profile_ = FetchCertificateProfile();
      return *profile_;
    });
    if (result.isVerified()) return pass(kIdentity, "the signer's digest is approved");
    if (!profile_) return stop(kIdentity, "failed", static_cast<std::uint32_t>(result.code()));
    if (profile_->empty()) {
      return stop(kIdentity, "failed", "no approved digests to be had: " + log_.errors().at(errorsBefore),
                  "Check the way to the account service, and Resources\\cacert.pem beside this program");
    }
    return stop(kIdentity, "refused", "the signer's digest is not approved",
                "Use a bundle that an approved certificate signed, or have the digest approved");
  }

  /// Who signed is worth knowing also when the signature is refused. The answer
  /// of this check is of no account: nobody is approved in it.
  void observeSigner() {
    static_cast<void>(CheckCertificateIdentity(observer_, path_, [] { return std::set<std::string>(); }));
  }

  bool pass(StepIndex step, std::string detail) {
    steps_.at(step).verdict = "passed";
    steps_.at(step).detail = std::move(detail);
    return true;
  }

  bool stop(StepIndex step, const char* verdict, std::string detail, std::string advice) {
    steps_.at(step).verdict = verdict;
    steps_.at(step).detail = std::move(detail);
    advice_ = std::move(advice);
    return false;
  }

  bool stop(StepIndex step, const char* verdict, std::uint32_t code) {
    const Explanation* row = explain(CodeKind::Trust, code);
    if (row == nullptr) row = explain(CodeKind::System, code);
    if (row == nullptr) return stop(step, verdict, describeSystemError(code), "");
    return stop(step, verdict, codeText(code) + ", " + std::string(row->meaning), std::string(row->advice));
  }

  std::wstring path_;
  const CapturedLog& log_;
  FileHandle file_;
  std::int64_t bytes_ = -1;
  bool signatureHolds_ = false;
  SignerObserver observer_{systemTrustApi()};
  std::optional<std::set<std::string>> profile_;
  std::string advice_ = "Nothing";
  std::array<Step, 5> steps_{Step{"open"}, Step{"size"}, Step{"extension"}, Step{"integrity"},
                             Step{"identity"}};
};

void describeSteps(Answer& answer, const Verification& verification) {
  std::vector<std::vector<std::string>> rows;
  answer.json["steps"] = Json::array();
  for (const auto& [name, verdict, detail] : verification.steps()) {
    rows.push_back({name, verdict, printable(detail)});
    answer.json["steps"].push_back({{"name", name}, {"verdict", verdict}, {"detail", detail}});
  }
  answer.text += "\n" + table({"CHECK", "VERDICT", "DETAIL"}, rows);
}

void describeSigner(Answer& answer, const Verification& verification) {
  const auto& signer = verification.signer();
  answer.json["signer"] = Json(nullptr);
  if (signer) answer.json["signer"] = {{"digest", signer->digest}, {"subject", signer->subject}};
  // What a refused signature says of its signer is only a claim.
  answer.text += "\n" + fields({{verification.signatureHolds() ? "Signer" : "Claimed signer",
                                 signer ? printable(signer->subject) : "none"},
                                {"Digest", signer ? signer->digest : "none"}});
}

void describeProfile(Answer& answer, const Verification& verification, const std::string& host) {
  const auto& profile = verification.profile();
  const auto& signer = verification.signer();
  const bool holds = signer && profile && profile->contains(signer->digest);
  answer.json["profile"] = {{"host", host},
                            {"asked", profile.has_value()},
                            {"digests", profile ? Json(profile->size()) : Json(nullptr)},
                            {"holdsSigner", profile ? Json(holds) : Json(nullptr)}};
  std::string text = printable(host) + ", not asked";
  if (profile) {
    text = printable(host) + ", approved digests: " + std::to_string(profile->size()) +
           (holds ? ", the signer's among them" : ", not the signer's");
  }
  answer.text += fields({{"Profile", text}});
}

}  // namespace

Answer runVerify(const Arguments& arguments) {
  const std::wstring bundle = absolutePath(arguments.target);
  if (auto problem = missingFile(bundle)) return *problem;
  adoptServiceEnvironment();
  // The service's settings are its account's; this user's must not steer what is worked out here.
  Preferences::useTestStore(true);
  // Never destroyed: the HTTP client's threads may log as long as the process lives.
  const CapturedLog& log = *std::make_unique<CapturedLog>().release();
  Verification verification(bundle, log);
  const std::int32_t status = verification.run();

  Answer answer;
  const bool trusted = status == client::kInstalled;
  answer.json["bundle"] = StringUtils::utf16to8(bundle);
  answer.json["trusted"] = trusted;
  answer.json["size"] = verification.bytes();
  answer.text =
      (trusted ? "Would be run: " : "Would be refused: ") + printable(StringUtils::utf16to8(bundle)) + "\n";
  describeSteps(answer, verification);
  describeSigner(answer, verification);
  describeProfile(answer, verification, accountServiceHost());
  answer.json["log"] = log.lines();
  describeVerdict(answer, status, verification.advice());
  return answer;
}

}  // namespace zarn::tool
