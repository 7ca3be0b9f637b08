#include "client/tool/report/outcome.h"

#include "client/tool/report/explanations.h"
#include "client/tool/report/text.h"
#include "os/error_text.h"
#include "util/printable.h"

namespace zarn::tool {
namespace {

/// The RPC runtime says only that nobody answered; the service control manager knows more.
/// A service that runs by now was starting or stopping a moment ago.
std::string whyNotRunning(const Result<ServiceFacts>& service) {
  if (!service && isNotInstalled(service.error())) {
    return "The update service is not installed on this machine; install its package.";
  }
  if (service && !service->running) {
    return "The update service is not running, it is " + service->state +
           "; start it: net start ZarnUpdateService.";
  }
  return "The update service cannot be reached; see zarn-update status.";
}

std::string reasonOf(const client::CallError& error, const Result<ServiceFacts>& service) {
  switch (error.failure) {
    case client::CallFailure::NotRunning:
      return whyNotRunning(service);
    case client::CallFailure::Refused:
      return "The update service refused this caller, or another program stands in its place; call as a "
             "local user of this machine, and see zarn-update status.";
    case client::CallFailure::Interrupted:
      return "The update service went away during the call, so what it did is unknown; see zarn-update "
             "status and zarn-update history.";
    case client::CallFailure::InvalidPath:
      return "The path cannot be sent to the service: it must be a full one of at most 32767 characters, "
             "without "
             "a zero among them.";
    case client::CallFailure::NotSent:
      return "The call was not sent: memory ran out.";
    case client::CallFailure::TimedOut:  // the tool's calls have no end of their own
    case client::CallFailure::Cancelled:
    case client::CallFailure::Other:
      break;
  }
  const std::string words = systemErrorPhrase(error.rpcStatus);
  return sentence("The call to the update service failed with RPC status " + std::to_string(error.rpcStatus) +
                  (words.empty() ? "" : ", " + words));
}

/// A call that was cut off in the middle must not look like one that never began: whoever
/// tries again after the first may install twice.
ExitCode exitCodeOf(client::CallFailure failure) noexcept {
  if (failure == client::CallFailure::Interrupted) return ExitCode::Interrupted;
  if (failure == client::CallFailure::InvalidPath) return ExitCode::WrongArguments;
  return ExitCode::ServiceUnreachable;
}

void addStatus(Answer& answer, Status status, const OutcomeWords& words) {
  answer.json["status"] = numberOf(status);
  answer.json["meaning"] = words.meaning;
  answer.json["advice"] = words.advice;
  const std::string number = codeText(static_cast<std::uint32_t>(status));
  answer.text +=
      fields({{"Status", number + ", " + printable(words.meaning)}, {"Next", printable(words.advice)}});
}

/// Whether and how the installer ended. The out value of the call means something only
/// when an installer was to be started: with Failed a 0 says that it never came to that.
std::optional<std::uint32_t> installerExitCode(const client::InstallAnswer& answered) {
  const auto code = static_cast<std::uint32_t>(answered.installerExitCode);
  const auto status = static_cast<Status>(answered.status);
  const StatusFacts* const facts = factsOf(status);
  const bool isOfInstaller = facts != nullptr && facts->installerExit.has_value();
  if (isOfInstaller || (status == Status::Failed && code != 0)) return code;
  return std::nullopt;
}

/// When an installer could not be started, its code is the system's error instead.
std::string installerCodeInWords(std::uint32_t code) {
  const Explanation* const row = explain(CodeKind::Installer, CodeKind::System, code);
  return codeText(code) + (row == nullptr ? "" : ", " + std::string(row->meaning));
}

/// Whether the check that was worked out can be the one for which the service refused.
bool explains(const WorkedOut& found, Status status) {
  return found.decided && found.status == status && found.status != Status::Installed;
}

std::string workedOutInWords(const WorkedOut& found, Status status) {
  if (explains(found, status)) return "here, as verify does, since the service records no checks";
  if (!found.problem.empty()) return "not here: " + printable(found.problem);
  if (found.status == Status::Installed)
    return "here, where nothing is wrong with it; what the service saw was something else";
  return "here, where it is refused for something else: see zarn-update verify";
}

/// The words for an install that was answered so, and the check that decided if one did.
struct Judgement {
  OutcomeWords words;
  const CheckRecord* decided = nullptr;
};

Judgement judged(Status status, const std::optional<std::uint32_t>& installerCode,
                 const OwnRequest& request) {
  if (request.record) return {outcomeWords(*request.record), decidingCheck(*request.record)};
  if (status == Status::Failed && installerCode) return {installerFailure(*installerCode, std::nullopt)};
  OutcomeWords words = statusWords(status);
  if (!isSuccess(status) && !request.problem.empty())
    words.meaning += "; which of these cannot be told, since the record cannot be read: " + request.problem;
  return {std::move(words)};
}

}  // namespace

void describeVerdict(Answer& answer, Status status, const std::optional<OutcomeWords>& refusal) {
  if (status == Status::Installed) {
    answer.exitCode = ExitCode::Success;
    addStatus(answer, status, {std::string(kTrustedMeaning), "Nothing"});
    return;
  }
  // Every other answer is a refusal, also one that this version does not know.
  answer.exitCode = ExitCode::Refused;
  const bool isKnown = factsOf(status) != nullptr;
  addStatus(answer, status, refusal.value_or(isKnown ? statusWords(status) : OutcomeWords{"refused", ""}));
}

Answer checkAnswer(const std::string& bundle, Status status, const std::optional<WorkedOut>& found,
                   const std::string& installRefusal) {
  Answer answer;
  const bool trusted = status == Status::Installed;
  const bool isExplained = found && explains(*found, status);
  answer.json["bundle"] = bundle;
  answer.json["trusted"] = trusted;
  answer.text = (trusted ? "Trusted: " : "Refused: ") + printable(bundle) + "\n";
  describeVerdict(answer, status, isExplained ? checkWords(*found->decided) : std::nullopt);
  answer.json["decidedBy"] = decidedByObject(isExplained ? &*found->decided : nullptr, "here");
  answer.json["installRefusal"] = installRefusal.empty() ? Json(nullptr) : Json(installRefusal);
  if (found) answer.text += fields({{"Worked out", workedOutInWords(*found, status)}});
  if (!installRefusal.empty()) answer.text += fields({{"Install", "would be refused: " + installRefusal}});
  return answer;
}

Answer installAnswer(const std::string& bundle, const client::InstallAnswer& answered,
                     std::chrono::milliseconds elapsed, const OwnRequest& request) {
  Answer answer;
  const auto status = static_cast<Status>(answered.status);
  const bool installed = isSuccess(status);
  const bool refused = status == Status::SignatureRefused || status == Status::SignerRefused;
  const auto installerCode = installerExitCode(answered);
  answer.exitCode = installed ? ExitCode::Success : ExitCode::Refused;
  answer.json["bundle"] = bundle;
  answer.json["installed"] = installed;
  answer.json["installerExitCode"] = orNull(installerCode);
  answer.json["elapsedMs"] = elapsed.count();
  answer.text = (installed ? "Installed: " : refused ? "Refused: " : "Failed: ") + printable(bundle) + "\n";
  const Judgement judgement = judged(status, installerCode, request);
  addStatus(answer, status, judgement.words);
  answer.json["decidedBy"] = decidedByObject(judgement.decided, "record");
  if (installerCode) answer.text += fields({{"Installer", installerCodeInWords(*installerCode)}});
  answer.text += fields({{"Took", duration(elapsed.count())}});
  return answer;
}

Answer setAppDataAnswer(const std::string& directory) {
  Answer answer;
  answer.json["directory"] = directory;
  answer.text =
      directory.empty()
          ? "The service was told to use its own account's folder again.\n"
          : "The service was told: " + printable(directory) +
                "\nIts logs are in \"Zarn Media Server\\Logs\" there, if it could use the folder.\n";
  answer.text += "See zarn-update status.\n";
  return answer;
}

Answer noAnswer(const client::CallError& error, const Result<ServiceFacts>& service) {
  Answer answer = failed(exitCodeOf(error.failure), reasonOf(error, service));
  answer.json["rpcStatus"] = error.rpcStatus;
  return answer;
}

}  // namespace zarn::tool
