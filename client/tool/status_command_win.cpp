#include <windows.h>

#include <optional>

#include "client/tool/commands.h"
#include "client/tool/explanations.h"
#include "client/tool/files_win.h"
#include "client/tool/history_files_win.h"
#include "client/tool/service_query_win.h"
#include "client/tool/service_setup_win.h"
#include "client/tool/text.h"
#include "os/error_text.h"
#include "util/printable.h"
#include "util/product_version.h"

namespace zarn::tool {
namespace {

constexpr std::int64_t kHistoryBytes = std::int64_t{1} << 20;

struct Outcome {
  std::string time;
  std::string bundle;
  std::int32_t status = 0;
  std::optional<std::uint32_t> installerExitCode;
};

/// The outcome of the last install request. `error` keeps why one that is recorded
/// could not be read.
std::optional<Outcome> lastOutcomeIn(const RecordSource& source, std::uint32_t& error) {
  const StoredHistory stored = readHistory(source, kHistoryBytes);
  if (!isMissing(stored.error)) error = stored.error;
  if (stored.history.records.empty()) return std::nullopt;
  const UpdateRecord& last = stored.history.records.back();
  return Outcome{last.time, last.path, last.status, last.exitCode};
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
          {"source", "history"}};
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
  const auto outcome = lastOutcomeIn(recordSource(arguments.logs), error);
  const std::string noOutcome =
      error == 0 ? "none is recorded" : "cannot be read: " + sentence(problemText(error));

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
