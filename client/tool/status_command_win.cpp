#include <windows.h>

#include <ctime>
#include <iomanip>
#include <optional>
#include <sstream>

#include "client/tool/commands.h"
#include "client/tool/explanations.h"
#include "client/tool/files_win.h"
#include "client/tool/history_files_win.h"
#include "client/tool/log_outcome.h"
#include "client/tool/service_query_win.h"
#include "client/tool/service_setup_win.h"
#include "client/tool/text.h"
#include "util/file_utils.h"
#include "util/file_version.h"
#include "util/printable.h"
#include "util/product_names.h"
#include "util/system_error.h"

namespace zarn::tool {
namespace {

constexpr std::int64_t kHistoryBytes = std::int64_t{1} << 20;
constexpr std::int64_t kLogBytes = std::int64_t{11} << 20;  // a log file has 10 MiB and a line
constexpr int kLogFiles = 6;

struct Outcome {
  std::string time;
  std::string bundle;
  std::int32_t status = 0;
  std::optional<std::uint32_t> installerExitCode;
  const char* source = "";
};

/// The end of a file in the folder; `error` keeps why one that is there could not be read.
std::string endOf(const std::string& folder, const std::string& name, std::int64_t maximumBytes,
                  std::uint32_t& error) {
  const FileEnd end = readEnd(FileUtils::join(folder, name), maximumBytes);
  if (end.error != 0 && !isMissing(end.error)) error = end.error;
  return end.bytes;
}

std::optional<Outcome> outcomeOfHistory(const std::string& folder, std::uint32_t& error) {
  const StoredHistory stored = readHistory(folder, kHistoryBytes);
  if (stored.error != 0 && !isMissing(stored.error)) error = stored.error;
  if (stored.history.records.empty()) return std::nullopt;
  const UpdateRecord& last = stored.history.records.back();
  return Outcome{last.time, last.path, last.status, last.exitCode, "history"};
}

std::optional<Outcome> outcomeOfLogs(const std::string& folder, std::uint32_t& error) {
  for (int number = 0; number < kLogFiles; ++number) {
    const std::string name = number == 0
                                 ? names::kCurrentLog.narrow
                                 : std::string(names::kLog.narrow) + "." + std::to_string(number) + ".log";
    if (auto last = lastOutcome(endOf(folder, name, kLogBytes, error))) {
      return Outcome{last->time, last->bundle, last->status, last->installerExitCode, "log"};
    }
  }
  return std::nullopt;
}

/// Seconds since the epoch; nothing for a text of another form.
std::optional<std::time_t> moment(const std::string& text, const char* form,
                                  std::time_t (*convert)(std::tm*)) {
  std::tm fields{};
  fields.tm_isdst = -1;
  std::istringstream stream(text);
  stream >> std::get_time(&fields, form);
  return stream ? std::optional(convert(&fields)) : std::nullopt;
}

/// Whether the log tells of a request after the history's last one, whose line
/// could not be written then.
bool isLater(const Outcome& log, const Outcome& history) {
  // One request's two times are some milliseconds apart.
  constexpr std::time_t slackSeconds = 2;
  const auto logged = moment(log.time, "%b %d, %Y %H:%M:%S", std::mktime);
  const auto recorded = moment(history.time, "%Y-%m-%dT%H:%M:%S", _mkgmtime);
  return logged && recorded && *logged > *recorded + slackSeconds;
}

/// The outcome of the last install request.
std::optional<Outcome> lastOutcomeIn(const std::string& folder, std::uint32_t& error) {
  auto history = outcomeOfHistory(folder, error);
  auto log = outcomeOfLogs(folder, error);
  return log && (!history || isLater(*log, *history)) ? log : history;
}

std::string inWords(const Outcome& outcome) {
  const auto code = static_cast<std::uint32_t>(outcome.status);
  const Explanation* const row = explain(CodeKind::Status, code);
  std::string text =
      printable(outcome.time) + "\n" + printable(outcome.bundle) + "\nstatus " + codeText(code);
  if (row != nullptr) text += ", " + std::string(row->meaning);
  if (outcome.installerExitCode) text += "\ninstaller exit code " + codeText(*outcome.installerExitCode);
  return text;
}

Json toJson(const Outcome& outcome) {
  return {{"time", outcome.time},
          {"path", outcome.bundle},
          {"status", outcome.status},
          {"exitCode", outcome.installerExitCode ? Json(*outcome.installerExitCode) : Json(nullptr)},
          {"source", outcome.source}};
}

std::string stateOf(const ServiceQuery& query) {
  if (query.facts) return query.facts->state;
  return query.error == ERROR_SERVICE_DOES_NOT_EXIST ? "not installed" : "unknown";
}

std::string stateInWords(const ServiceQuery& query) {
  if (!query.facts) {
    return query.error == ERROR_SERVICE_DOES_NOT_EXIST
               ? "not installed"
               : "unknown: " + sentence(systemErrorPhrase(query.error));
  }
  std::string text = query.facts->state;
  if (query.facts->processId != 0) text += ", process " + std::to_string(query.facts->processId);
  const bool neverStarted = query.facts->exitCode == ERROR_SERVICE_NEVER_STARTED;
  if (query.facts->state == "stopped" && query.facts->exitCode != 0 && !neverStarted) {
    text += ", ended with code " + codeText(query.facts->exitCode);
  }
  return text;
}

}  // namespace

Answer runStatus(const Arguments& arguments) {
  const ServiceQuery query = queryService();
  const ServiceFacts facts = query.facts.value_or(ServiceFacts{});
  const FileVersion version = facts.program.empty() ? FileVersion{} : readFileVersion(facts.program);
  const std::string folder = serviceLogFolder(arguments.logs);
  const bool folderIsThere = mayBeFolder(folder);
  std::uint32_t error = 0;
  const auto outcome = lastOutcomeIn(folder, error);
  const std::string noOutcome =
      error == 0 ? "none is recorded" : "cannot be read: " + sentence(systemErrorPhrase(error));

  Answer answer;
  answer.exitCode = facts.running ? ExitCode::Success : ExitCode::ServiceUnreachable;
  answer.json["state"] = stateOf(query);
  answer.json["processId"] = facts.processId;
  answer.json["serviceExitCode"] = facts.exitCode;
  answer.json["program"] = facts.program;
  answer.json["version"] = version.productVersion;
  answer.json["account"] = facts.account;
  answer.json["logFolder"] = folder;
  answer.json["logFolderExists"] = folderIsThere;
  answer.json["lastOutcome"] = outcome ? toJson(*outcome) : Json(nullptr);
  answer.text =
      fields({{"Service", stateInWords(query)},
              {"Version", version.productVersion.empty() ? "unknown" : printable(version.productVersion)},
              {"Program", facts.program.empty() ? "none" : printable(facts.program)},
              {"Account", facts.account.empty() ? "unknown" : printable(facts.account)},
              {"Log folder", printable(folder) + (folderIsThere ? "" : " (does not exist)")},
              {"Last outcome", outcome ? inWords(*outcome) : noOutcome}});
  return answer;
}

}  // namespace zarn::tool
