#include "client/tool/report/history.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "client/tool/report/text.h"
#include "os/error_text.h"
#include "update/record_folder.h"
#include "update/status.h"
#include "util/printable.h"

namespace zarn::tool {
namespace {

std::string fileNameOf(const std::string& path) {
  const std::size_t separator = path.find_last_of("\\/");
  return separator == std::string::npos ? path : path.substr(separator + 1);
}

/// A few words on what decided: why nothing was begun, else the check that did not pass,
/// else what became of the installer.
std::string outcomeOf(const InstallRecord& record) {
  if (!record.reason.empty()) return "not begun: " + record.reason;
  const CheckRecord* const check = decidingCheck(record);
  if (check != nullptr) return check->verdict + " at " + check->name;
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

/// What two histories say of their files, in one.
void addFindings(History& to, const History& from) {
  to.skipped += from.skipped;
  to.isCut = to.isCut || from.isCut;
}

}  // namespace

History parseHistory(std::string_view text, bool isCut) {
  History history;
  history.isCut = isCut;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.find_first_not_of(" \t\r") == std::string_view::npos) continue;
    if (auto record = parseRecord(line)) {
      history.records.push_back(std::move(*record));
    } else {
      ++history.skipped;
    }
  }
  // The cut may have fallen between two lines; then no line is torn, and none is forgiven.
  if (isCut && history.skipped > 0) --history.skipped;
  return history;
}

void append(History& earlier, History later) {
  addFindings(earlier, later);
  std::move(later.records.begin(), later.records.end(), std::back_inserter(earlier.records));
}

History mergeByTime(History one, History other) {
  History merged;
  addFindings(merged, one);
  addFindings(merged, other);
  // A merge, and no sort: after a clock was put back a file's order says more than its times.
  std::merge(std::make_move_iterator(one.records.begin()), std::make_move_iterator(one.records.end()),
             std::make_move_iterator(other.records.begin()), std::make_move_iterator(other.records.end()),
             std::back_inserter(merged.records),
             [](const InstallRecord& left, const InstallRecord& right) { return left.time < right.time; });
  return merged;
}

const CheckRecord* decidingCheck(const InstallRecord& record) noexcept {
  // Whatever was not looked at then, or is not known here, let it be run.
  if (record.exitCode) return nullptr;
  const auto check = std::ranges::find_if(
      record.checks, [](const CheckRecord& one) { return one.verdict != nameOf(Verdict::Passed); });
  return check == record.checks.end() ? nullptr : &*check;
}

std::string recordProblem(SystemError error) {
  return error == SystemError(kFolderNotTrusted) ? "users may have written to it" : systemErrorPhrase(error);
}

Answer historyAnswer(const RecordSource& source, const std::string& file, Result<History> history,
                     std::uint32_t last) {
  // A machine that has answered no request yet has no record, and nothing is wrong with it.
  if (!history && history.error().isNotFound() && !source.isGiven) history = History();
  if (!history || history->unread) {
    const SystemError error = history ? *history->unread : history.error();
    return failed(ExitCode::LocalFailure, sentence("The history in " + printable(source.folder) +
                                                   " cannot be read: " + recordProblem(error)));
  }
  std::vector<InstallRecord>& records = history->records;
  if (last != 0 && records.size() > last) records.erase(records.begin(), records.end() - last);
  Answer answer;
  answer.json["file"] = file;
  answer.json["requests"] = Json::array();
  for (const InstallRecord& record : records) answer.json["requests"].push_back(zarn::toJson(record));
  answer.json["skippedLines"] = history->skipped;
  answer.json["olderOmitted"] = history->isCut;
  answer.text = records.empty() ? "No requests are recorded in " + printable(source.folder) + "\n"
                                : historyTable(records);
  if (history->skipped != 0) {
    answer.text += std::to_string(history->skipped) + " line(s) of the history could not be read.\n";
  }
  if (history->isCut) answer.text += "Older requests are left out; there are very many.\n";
  return answer;
}

}  // namespace zarn::tool
