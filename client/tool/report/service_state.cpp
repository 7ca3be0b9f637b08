#include "client/tool/report/service_state.h"

#include "client/tool/report/outcome_words.h"
#include "client/tool/report/text.h"
#include "os/error_text.h"
#include "util/printable.h"

namespace zarn::tool {
namespace {

constexpr SystemError kNotInstalled(1060);     // ERROR_SERVICE_DOES_NOT_EXIST
constexpr std::uint32_t kNeverStarted = 1077;  // ERROR_SERVICE_NEVER_STARTED

constexpr char kChanged[] =
    "\nSettings have changed since the service started; they take effect at its next start";

/// What the service ended with is worth a word only once it has ended: the code stays the
/// one of the last stop while it runs again.
std::string stateInWords(const Result<ServiceFacts>& service) {
  if (!service) {
    return isNotInstalled(service.error()) ? "not installed"
                                           : "unknown: " + sentence(systemErrorPhrase(service.error()));
  }
  std::string text = service->state;
  if (service->processId != 0) text += ", process " + std::to_string(service->processId);
  const bool hasEnded = service->exitCode != 0 && service->exitCode != kNeverStarted;
  if (service->state == "stopped" && hasEnded) text += ", ended with code " + codeText(service->exitCode);
  return text;
}

std::string outcomeInWords(const InstallRecord& last) {
  const auto code = static_cast<std::uint32_t>(last.status);
  const OutcomeWords words = outcomeWords(last);
  std::string text = printable(last.time) + "\n" + printable(last.path) + "\nstatus " + codeText(code) +
                     ", " + printable(words.meaning);
  if (last.exitCode) text += "\ninstaller exit code " + codeText(*last.exitCode);
  if (!isSuccess(last.status)) text += "\nnext: " + printable(words.advice);
  return text;
}

/// The newest request that could be read; null when there is none.
const InstallRecord* lastOf(const Result<History>& history) {
  return history && !history->records.empty() ? &history->records.back() : nullptr;
}

std::string whyNoOutcome(const Result<History>& history) {
  const bool isMissing = !history && history.error().isNotFound();
  if (isMissing || (history && !history->unread)) return "none is recorded";
  const SystemError error = history ? *history->unread : history.error();
  return "cannot be read: " + sentence(recordProblem(error));
}

Json outcomeObject(const InstallRecord& last) {
  const OutcomeWords words = outcomeWords(last);
  return {{"time", last.time},
          {"path", last.path},
          {"status", static_cast<std::int32_t>(last.status)},
          {"exitCode", orNull(last.exitCode)},
          {"meaning", words.meaning},
          {"advice", words.advice},
          {"source", "history"}};
}

std::string shownOr(const std::string& text, const char* otherwise) {
  return text.empty() ? otherwise : printable(text);
}

}  // namespace

bool isNotInstalled(SystemError error) noexcept {
  return error == kNotInstalled;
}

std::string programOfCommandLine(const std::string& commandLine) {
  if (commandLine.starts_with('"')) return commandLine.substr(1, commandLine.find('"', 1) - 1);
  // Without quotation marks the program's path may have blanks, so the first of them does
  // not end it; our program's name does.
  const std::size_t end = commandLine.find(".exe");
  return end == std::string::npos ? commandLine : commandLine.substr(0, end + 4);
}

Answer statusAnswer(const ServiceReport& report) {
  const ServiceFacts facts = report.service.value_or(ServiceFacts{});
  const InstallRecord* const last = lastOf(report.history);
  std::string state = facts.state;
  if (!report.service) state = isNotInstalled(report.service.error()) ? "not installed" : "unknown";

  Answer answer;
  // A record that cannot be read is shown as such and changes nothing of the exit code,
  // which is about the service.
  answer.exitCode = facts.running ? ExitCode::Success : ExitCode::ServiceUnreachable;
  answer.json["state"] = state;
  answer.json["processId"] = facts.processId;
  answer.json["serviceExitCode"] = facts.exitCode;
  answer.json["program"] = facts.program;
  answer.json["version"] = report.version;
  answer.json["account"] = facts.account;
  answer.json["logFolder"] = report.logFolder;
  answer.json["logFolderExists"] = report.logFolderExists;
  answer.json["settings"] = settingsArray(report.settings);
  answer.json["settingsChangedSinceStart"] = orNull(report.settingsChanged);
  answer.json["lastOutcome"] = last != nullptr ? outcomeObject(*last) : Json(nullptr);
  answer.text = fields(
      {{"Service", stateInWords(report.service)},
       {"Version", shownOr(report.version, "unknown")},
       {"Program", shownOr(facts.program, "none")},
       {"Account", shownOr(facts.account, "unknown")},
       {"Log folder", printable(report.logFolder) + (report.logFolderExists ? "" : " (does not exist)")},
       {"Settings", settingsText(report.settings) + (report.settingsChanged == true ? kChanged : "")},
       {"Last outcome", last != nullptr ? outcomeInWords(*last) : whyNoOutcome(report.history)}});
  return answer;
}

}  // namespace zarn::tool
