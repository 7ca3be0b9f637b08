#include "client/tool/report/verification_report.h"

#include <algorithm>

#include "client/tool/report/outcome.h"
#include "client/tool/report/text.h"
#include "util/printable.h"

namespace zarn::tool {
namespace {

/// A detail can hold what the system says of the file or the author of its policy wrote:
/// it is made printable for people, and scripts get it as it is.
void addSteps(Answer& answer, const std::vector<CheckRecord>& steps) {
  std::vector<std::vector<std::string>> rows;
  answer.json["steps"] = Json::array();
  for (const auto& [name, verdict, detail] : steps) {
    rows.push_back({name, verdict, printable(detail)});
    answer.json["steps"].push_back({{"name", name}, {"verdict", verdict}, {"detail", detail}});
  }
  answer.text += "\n" + table({"CHECK", "VERDICT", "DETAIL"}, rows);
}

void addSigner(Answer& answer, const VerificationReport& report) {
  const auto& signer = report.signer;
  answer.json["signer"] = Json(nullptr);
  if (signer) answer.json["signer"] = {{"digest", signer->digest}, {"subject", signer->subject}};
  answer.text += "\n" + fields({{report.signatureHolds ? "Signer" : "Claimed signer",
                                 signer ? printable(signer->subject) : "none"},
                                {"Digest", signer ? signer->digest : "none"}});
}

/// Whether the account service was asked at all, and whether it answered, is told apart from a
/// list that approves nobody: that alone is a finding about the signer.
void addProfile(Answer& answer, const VerificationReport& report) {
  const auto& profile = report.profile;
  const bool isHad = profile && profile->isHad;
  answer.json["profile"] = {{"host", report.host},
                            {"asked", profile.has_value()},
                            {"digests", isHad ? Json(profile->digests) : Json(nullptr)},
                            {"holdsSigner", isHad ? Json(profile->holdsSigner) : Json(nullptr)}};
  std::string text = printable(report.host) + (profile ? ", asked in vain" : ", not asked");
  if (isHad) {
    text = printable(report.host) + ", approved digests: " + std::to_string(profile->digests) +
           (profile->holdsSigner ? ", the signer's among them" : ", not the signer's");
  }
  answer.text += fields({{"Profile", text}});
}

/// By the first check that did not pass.
std::optional<OutcomeWords> refusalOf(const std::vector<CheckRecord>& steps) {
  const auto decided = std::ranges::find_if(
      steps, [](const CheckRecord& step) { return step.verdict != nameOf(Verdict::Passed); });
  return decided == steps.end() ? std::nullopt : checkWords(*decided);
}

}  // namespace

Answer verificationAnswer(const std::string& bundle, const VerificationReport& report) {
  Answer answer;
  const bool trusted = report.status == Status::Installed;
  answer.json["bundle"] = bundle;
  answer.json["trusted"] = trusted;
  answer.json["size"] = report.bytes;
  answer.text = (trusted ? "Would be run: " : "Would be refused: ") + printable(bundle) + "\n";
  addSteps(answer, report.steps);
  addSigner(answer, report);
  addProfile(answer, report);
  // The log comes last of the findings, since it is long and for whoever doubts them.
  answer.json["log"] = report.log;
  describeVerdict(answer, report.status, refusalOf(report.steps));
  return answer;
}

}  // namespace zarn::tool
