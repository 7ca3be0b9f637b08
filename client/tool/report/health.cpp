#include "client/tool/report/health.h"

#include <algorithm>

#include "client/tool/report/explanations.h"
#include "client/tool/report/outcome_words.h"
#include "client/tool/report/text.h"
#include "os/error_text.h"
#include "update/status.h"
#include "util/printable.h"

namespace zarn::tool {
namespace {

struct Health {
  std::vector<std::string> problems;
  /// What is worth knowing and no problem.
  std::vector<std::string> notes;
};

std::string codeOf(const InstallRecord& record) {
  return codeText(static_cast<std::uint32_t>(record.status));
}

/// What is wrong with the service itself; empty when it runs.
std::string problemOfService(const Result<ServiceFacts>& service) {
  if (service && service->running) return {};
  if (service) return "The service is not running, it is " + service->state;
  if (isNotInstalled(service.error())) return "The service is not installed";
  return "Whether the service runs cannot be told: " + systemErrorPhrase(service.error());
}

/// The newest of what could be read; null when there is none.
const InstallRecord* newestIn(const Result<History>& history) {
  return history && !history->records.empty() ? &history->records.back() : nullptr;
}

void judgeHistory(const Result<History>& all, const Result<History>& updates, Health& health) {
  const bool isMissing = !updates && updates.error().isNotFound();
  if (!isMissing && (!updates || updates->unread)) {
    const SystemError error = updates ? *updates->unread : updates.error();
    health.notes.push_back("the record cannot be read: " + clause(recordProblem(error)));
    if (!updates) return;
  }
  const InstallRecord* const last = newestIn(updates);
  if (last == nullptr) {
    health.notes.emplace_back("no update is recorded");
  } else if (isSuccess(last->status)) {
    health.notes.push_back("the last update of " + last->time + " ended with " + codeOf(*last));
  } else {
    health.problems.push_back("The last update of " + last->time + " failed with " + codeOf(*last) + ", " +
                              outcomeWords(*last).meaning + ": " + last->path);
  }
  const InstallRecord* const newest = newestIn(all);
  if (newest == nullptr || newest->exitCode) return;
  health.notes.push_back("the newest request, of " + newest->time + ", was refused with " + codeOf(*newest));
}

Health judge(const ServiceReport& report, const Result<History>& lastUpdate,
             const std::vector<Finding>& configuration) {
  Health health;
  if (std::string down = problemOfService(report.service); !down.empty())
    health.problems.push_back(std::move(down));
  for (const Finding& finding : configuration) {
    if (!finding.ok) health.problems.push_back(finding.name + ": " + foundAndAdvised(finding));
  }
  judgeHistory(report.history, lastUpdate, health);
  if (report.installing && *report.installing) health.notes.emplace_back("an update is being installed");
  if (report.runningVersion && !report.version.empty() && *report.runningVersion != report.version)
    health.notes.emplace_back("another version of the service waits for its restart");
  if (report.settingsChanged == true) health.notes.emplace_back("changed settings wait for a restart");
  return health;
}

}  // namespace

bool mayBeComingBack(const Result<ServiceFacts>& service) {
  if (!service) return false;
  const bool hasEnded = service->state == "stopped" && service->exitCode == kRestartCode;
  return hasEnded || service->state == "starting" || service->state == "stopping";
}

Answer checkedStatusAnswer(const ServiceReport& report, const Result<History>& lastUpdate,
                           const std::vector<Finding>& configuration) {
  const bool isRunning = report.service && report.service->running;
  const auto [problems, notes] = judge(report, lastUpdate, configuration);
  Answer answer = statusAnswer(report);
  answer.exitCode = !isRunning         ? ExitCode::ServiceUnreachable
                    : problems.empty() ? ExitCode::Success
                                       : ExitCode::Refused;
  answer.json["problems"] = Json::array();
  answer.json["notes"] = notes;
  answer.text = !isRunning ? "DOWN:" : problems.empty() ? "OK: the service is running" : "PROBLEM:";
  for (const std::string& problem : problems) {
    answer.json["problems"].push_back(sentence(problem));
    answer.text += " " + sentence(printable(problem));
  }
  for (std::size_t i = 0; i < notes.size(); ++i)
    answer.text += (i != 0 || problems.empty() ? "; " : " Also: ") + printable(notes[i]);
  answer.text += '\n';
  return answer;
}

}  // namespace zarn::tool
