#include <windows.h>

#include <string>
#include <vector>

#include "client/tool/captured_log.h"
#include "client/tool/commands.h"
#include "client/tool/service_call_win.h"
#include "client/tool/service_setup_win.h"
#include "client/tool/text.h"
#include "client/tool/verification_win.h"
#include "prefs/preferences.h"
#include "trust/account_service_host.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

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
  const auto& identity = verification.identity();
  const bool asked = identity && identity->profile != ProfileState::NotAsked;
  const bool holds = identity && identity->result.isVerified();
  answer.json["profile"] = {{"host", host},
                            {"asked", asked},
                            {"digests", asked ? Json(identity->approvedDigests) : Json(nullptr)},
                            {"holdsSigner", asked ? Json(holds) : Json(nullptr)}};
  std::string text = printable(host) + ", not asked";
  if (asked) {
    text = printable(host) + ", approved digests: " + std::to_string(identity->approvedDigests) +
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
