#include "client/tool/report/service_state.h"

#include "client/install_under_way.h"
#include "client/tool/report/outcome_words.h"
#include "client/tool/report/text.h"
#include "os/error_text.h"
#include "util/printable.h"
#include "util/product_names.h"

namespace zarn::tool {
namespace {

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

// ---- What else there is to see ---------------------------------------------------

/// "1 s", "2 days".
std::string wholeTime(std::uint64_t milliseconds) {
  constexpr std::uint64_t day = std::uint64_t{24} * 60 * 60 * 1000;
  if (milliseconds == day) return "a day";
  if (milliseconds != 0 && milliseconds % day == 0) return std::to_string(milliseconds / day) + " days";
  if (milliseconds < 120'000 && milliseconds % 1000 == 0) return std::to_string(milliseconds / 1000) + " s";
  return duration(static_cast<std::int64_t>(milliseconds));
}

Json recoveryObject(const std::optional<Recovery>& recovery) {
  if (!recovery) return nullptr;
  Json steps = Json::array();
  for (const auto& [action, delay] : recovery->steps)
    steps.push_back({{"action", action}, {"delayMs", delay}});
  const bool isReset = recovery->resetSeconds != Recovery::kNever;
  return {{"steps", steps}, {"resetSeconds", isReset ? Json(recovery->resetSeconds) : Json(nullptr)}};
}

std::string versionInWords(const ServiceReport& report) {
  std::string onDisk = report.version.empty() ? "unknown" : printable(report.version);
  if (!report.runningVersion) return onDisk;
  if (*report.runningVersion == report.version) return onDisk + ", running";
  return onDisk + "\n" + printable(*report.runningVersion) + " is running" +
         (report.version.empty() ? "" : "; the version on the disk waits for a restart of the service");
}

std::string installingInWords(const Result<std::optional<InstallUnderWay>>& installing) {
  if (!installing) return "unknown: " + sentence(recordProblem(installing.error()));
  if (!*installing) return "nothing";
  const InstallUnderWay& shown = **installing;
  if (shown.path.empty()) return "an update";
  return printable(shown.path) + "\nsince " + printable(shown.since);
}

Json installingObject(const Result<std::optional<InstallUnderWay>>& installing) {
  if (!installing || !*installing) return nullptr;
  const InstallUnderWay& shown = **installing;
  return {{"path", shown.path}, {"since", shown.since}, {"processId", shown.processId}};
}

std::string lines(const std::vector<std::string>& texts) {
  std::string result;
  for (const std::string& text : texts) result += (result.empty() ? "" : "\n") + printable(text);
  return result;
}

/// The keys of what was found out beside the service's state and its last outcome.
void addMachine(Json& json, const ServiceReport& report) {
  const auto& installing = report.installing;
  json["installing"] = installingObject(installing);
  json["installingUnknown"] = installing ? Json(nullptr) : Json(recordProblem(installing.error()));
  json["versionRunning"] = orNull(report.runningVersion);
  json["authorities"] = authoritiesObject(report.authorities);
  json["tempFolder"] = orNull(report.tempFolder);
  json["recordFolder"] = report.recordFolder;
  json["earlierLogFolders"] = report.earlierLogs;
}

std::string shownOr(const std::string& text, const char* otherwise) {
  return text.empty() ? otherwise : printable(text);
}

}  // namespace

bool isNotInstalled(SystemError error) noexcept {
  return error == client::kServiceNotInstalled;
}

std::string programOfCommandLine(const std::string& commandLine) {
  if (commandLine.starts_with('"')) return commandLine.substr(1, commandLine.find('"', 1) - 1);
  // Without quotation marks the program's path may have blanks, so the first of them does
  // not end it; our program's name does.
  const std::size_t end = commandLine.find(".exe");
  return end == std::string::npos ? commandLine : commandLine.substr(0, end + 4);
}

std::string recoveryInWords(const std::optional<Recovery>& recovery) {
  if (!recovery) return "unknown";
  if (recovery->steps.empty()) return "none";
  std::string text;
  std::string before;
  for (const auto& [action, delay] : recovery->steps) {
    if (!text.empty()) text += ", ";
    // What is done each time is said once.
    if (action != before) text += action + (action == "nothing" ? "" : " after ");
    if (action != "nothing") text += wholeTime(delay);
    before = action;
  }
  if (recovery->resetSeconds == Recovery::kNever) return text + "; the count never begins anew";
  return text + "; the count begins anew after " + wholeTime(std::uint64_t{1000} * recovery->resetSeconds);
}

std::optional<std::string> versionOfBanner(std::string_view head) {
  constexpr std::string_view banner = " - Zarn Update Service v";
  const std::size_t begin = head.find(banner);
  if (begin == std::string_view::npos) return std::nullopt;
  head.remove_prefix(begin + banner.size());
  const std::size_t end = head.find_first_of(" \r\n");
  constexpr std::size_t longest = 100;
  if (end == 0 || end == std::string_view::npos || end > longest) return std::nullopt;
  return std::string(head.substr(0, end));
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
  answer.json["startType"] = facts.start.empty() ? Json(nullptr) : Json(facts.start);
  answer.json["recovery"] = recoveryObject(facts.recovery);
  addMachine(answer.json, report);
  answer.json["lastOutcome"] = last != nullptr ? outcomeObject(*last) : Json(nullptr);
  // Of status --check alone.
  answer.json["problems"] = nullptr;
  answer.json["notes"] = nullptr;
  answer.text = fields(
      {{"Service", stateInWords(report.service)},
       {"Installing", installingInWords(report.installing)},
       {"Start type", shownOr(facts.start, "unknown")},
       {"Recovery", recoveryInWords(facts.recovery)},
       {"Version", versionInWords(report)},
       {"Program", shownOr(facts.program, "none")},
       {"Account", shownOr(facts.account, "unknown")},
       {"Account host", settingInWords(names::kAccountServiceHostValue.narrow, report.settings)},
       {"Authorities", authoritiesInWords(report.authorities)},
       {"Collector", settingInWords(names::kSyslogCollectorValue.narrow, report.settings)},
       {"Temp folder", report.tempFolder ? shownOr(*report.tempFolder, "none") : "unknown"},
       {"Log folder", printable(report.logFolder) + (report.logFolderExists ? "" : " (does not exist)")},
       {"Earlier logs", report.earlierLogs.empty() ? "none" : lines(report.earlierLogs)},
       {"Record folder", shownOr(report.recordFolder, "unknown")},
       {"Settings", settingsText(report.settings) + (report.settingsChanged == true ? kChanged : "")},
       {"Last outcome", last != nullptr ? outcomeInWords(*last) : whyNoOutcome(report.history)}});
  return answer;
}

}  // namespace zarn::tool
