// status and history: what the service is, and what it has answered.
#include <chrono>
#include <string>
#include <thread>

#include "client/tool/commands/commands.h"
#include "client/tool/machine/authorities.h"
#include "client/tool/machine/checkup.h"
#include "client/tool/machine/environment.h"
#include "client/tool/machine/files.h"
#include "client/tool/machine/record.h"
#include "client/tool/machine/service.h"
#include "client/tool/machine/settings.h"
#include "client/tool/machine/within.h"
#include "client/tool/report/health.h"
#include "client/tool/report/moments.h"
#include "os/clock.h"
#include "update/record_folder.h"
#include "util/file_utils.h"
#include "util/product_names.h"
#include "util/product_version.h"

namespace zarn::tool {
namespace {

HistoryWish wishOf(const Arguments& arguments) {
  HistoryWish wish;
  wish.onlyFailed = arguments.failed;
  const auto since = momentFrom(arguments.since, std::chrono::system_clock::now());
  if (since) wish.since = isoTime(*since);
  wish.last = arguments.last;
  // Who names a time means all that came after it.
  if (arguments.last == 0 && !arguments.all && !since) wish.last = kUsualRequests;
  return wish;
}

/// After an update the service ends, and is started anew in 1 s, or 5 s the second time: it is
/// waited for a little longer.
constexpr std::chrono::seconds kMostWaitForRestart(8);
constexpr std::chrono::milliseconds kRestartPoll(200);

Result<ServiceFacts> serviceOnceBack() {
  const auto due = std::chrono::steady_clock::now() + kMostWaitForRestart;
  auto service = queryService();
  while (mayBeComingBack(service) && std::chrono::steady_clock::now() < due) {
    std::this_thread::sleep_for(kRestartPoll);
    service = queryService();
  }
  return service;
}

/// Folders may lie on drives that do not answer, and who monitors waits for no minute.
constexpr std::chrono::seconds kStatusLimit(25);

Answer lookAtService(const Arguments& arguments) {
  ServiceReport report;
  report.service = arguments.check ? serviceOnceBack() : queryService();
  report.logFolder = serviceLogFolder(arguments.logs);
  if (arguments.logs.empty()) report.earlierLogs = earlierLogFolders(report.logFolder);
  if (report.service) {
    if (!report.service->program.empty())
      report.version = readFileVersion(report.service->program).productVersion;
    report.runningVersion = versionRunning(*report.service, report.logFolder);
    report.settingsChanged = settingsChangedSinceStart(report.service->processId);
  }
  report.settings = serviceSettings();
  const std::int64_t now = os::wallTime().seconds;
  report.authorities = readAuthorities(serviceResources(report.service), isListChosen(), now);
  report.tempFolder = serviceTempFolder();
  report.recordFolder = recordFolderPath();
  report.logFolderExists = mayBeFolder(report.logFolder);
  report.installing = installUnderWay(report.recordFolder, report.service);
  // Read last: whatever else is shown, the outcome is the newest.
  const RecordSource record = recordSource(arguments.logs);
  report.history = readHistory(record, {1});
  if (!arguments.check) return statusAnswer(report);
  const auto lastUpdate = readHistory(record, {.last = 1, .onlyUpdates = true});
  return checkedStatusAnswer(report, lastUpdate, checkConfiguration());
}

}  // namespace

Answer runStatus(const Arguments& arguments) {
  const auto answer = within<Answer>(kStatusLimit, [arguments] { return lookAtService(arguments); });
  if (answer) return *answer;
  return failed(ExitCode::LocalFailure, "A drive or the service control manager does not answer for " +
                                            std::to_string(kStatusLimit.count()) + " s.");
}

Answer runHistory(const Arguments& arguments) {
  const RecordSource source = recordSource(arguments.logs);
  return historyAnswer(source, FileUtils::join(source.folder, names::kHistory.narrow),
                       readHistory(source, wishOf(arguments)));
}

}  // namespace zarn::tool
