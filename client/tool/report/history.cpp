#include "client/tool/report/history.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "client/tool/report/outcome_words.h"
#include "client/tool/report/text.h"
#include "os/error_text.h"
#include "update/record_folder.h"
#include "update/status.h"
#include "util/printable.h"

namespace zarn::tool {
namespace {

/// Of a check's detail, in characters, in the table.
constexpr std::size_t kLongestShownDetail = 100;

std::string fileNameOf(const std::string& path) {
  const std::size_t separator = path.find_last_of("\\/");
  return separator == std::string::npos ? path : path.substr(separator + 1);
}

/// A few words on what decided: why nothing was begun, else the check that did not pass,
/// else what became of the installer.
std::string outcomeOf(const InstallRecord& record) {
  if (!record.reason.empty()) return "not begun: " + record.reason;
  const CheckRecord* const check = decidingCheck(record);
  if (check != nullptr) {
    const bool isOfSigner = check->name == nameOf(Check::Identity) || check->name == nameOf(Check::Policy);
    const bool hasWords = isOfSigner && checkWords(*check);
    const std::string why = hasWords ? ": " + cutText(check->detail, kLongestShownDetail) : "";
    return check->verdict + " at " + check->name + why;
  }
  if (record.status == Status::Failed && record.exitCode)
    return installerFailure(*record.exitCode, record.installerStarted).meaning;
  const StatusFacts* const facts = factsOf(record.status);
  // A number that is no status of the service's is an error of the system.
  return std::string(facts != nullptr ? facts->outcome : "failed");
}

/// "S-1-5-21-..., media-server.exe", of which either may be unknown.
std::string callerText(const Caller& caller) {
  std::string program = fileNameOf(caller.image);
  if (program.empty() && caller.processId) program = "process " + std::to_string(*caller.processId);
  if (caller.sid.empty() && program.empty()) return "-";
  const bool both = !caller.sid.empty() && !program.empty();
  return caller.sid + (both ? ", " : "") + program;
}

std::string historyTable(const std::vector<InstallRecord>& records) {
  std::vector<std::vector<std::string>> rows;
  rows.reserve(records.size());
  for (const InstallRecord& record : records) {
    rows.push_back({printable(record.time), codeText(static_cast<std::uint32_t>(record.status)),
                    printable(outcomeOf(record)), record.exitCode ? codeText(*record.exitCode) : "-",
                    record.durationMilliseconds ? duration(*record.durationMilliseconds) : "-",
                    record.productVersion.empty() ? "-" : printable(record.productVersion),
                    printable(callerText(record.caller)), printable(fileNameOf(record.path))});
  }
  return table({"TIME (UTC)", "STATUS", "OUTCOME", "EXIT CODE", "TOOK", "VERSION", "ASKED BY", "BUNDLE"},
               rows);
}

/// What is said of the requests that are not shown; empty when all are.
std::string olderInWords(const OlderRequests& older) {
  if (older.count == 0) return "Older ones are not shown; --all shows them.\n";
  const bool isOne = older.count == 1 && older.isExact;
  return (older.isExact ? "" : "More than ") + std::to_string(older.count) +
         (isOne ? " older request is" : " older requests are") + " not shown; --all shows them.\n";
}

/// Every key of the record, and what it means.
Json requestObject(const InstallRecord& record) {
  Json object = zarn::toJson(record);
  const OutcomeWords words = outcomeWords(record);
  object["meaning"] = words.meaning;
  object["advice"] = words.advice;
  return object;
}

}  // namespace

std::string recordProblem(SystemError error) {
  return error == SystemError(kFolderNotTrusted) ? "users may have written to it" : systemErrorPhrase(error);
}

Answer historyAnswer(const RecordSource& source, const std::string& file, Result<History> history) {
  // A machine that has answered no request yet has no record, and nothing is wrong with it.
  if (!history && history.error().isNotFound() && !source.isGiven) history = History();
  if (!history || history->unread) {
    const SystemError error = history ? *history->unread : history.error();
    return failed(ExitCode::LocalFailure, sentence("The history in " + printable(source.folder) +
                                                   " cannot be read: " + recordProblem(error)));
  }
  const std::vector<InstallRecord>& records = history->records;
  const auto& older = history->older;
  Answer answer;
  answer.json["file"] = file;
  answer.json["requests"] = Json::array();
  for (const InstallRecord& record : records) answer.json["requests"].push_back(requestObject(record));
  answer.json["skippedLines"] = history->skipped;
  answer.json["olderOmitted"] = history->isCut || older;
  answer.json["older"] = older && older->isExact ? Json(older->count) : Json(nullptr);
  if (!older && !history->isCut) answer.json["older"] = 0;
  answer.text = records.empty() ? "No requests are recorded in " + printable(source.folder) + "\n"
                                : historyTable(records);
  if (history->skipped != 0) {
    answer.text += std::to_string(history->skipped) + " line(s) of the history could not be read.\n";
  }
  if (older) answer.text += olderInWords(*older);
  if (history->isCut) answer.text += "Older requests are left out; there are very many.\n";
  return answer;
}

}  // namespace zarn::tool
