// status and history: what the service is, and what it has answered.
#include <chrono>

#include "client/tool/commands/commands.h"
#include "client/tool/machine/files.h"
#include "client/tool/machine/record.h"
#include "client/tool/machine/service.h"
#include "client/tool/machine/settings.h"
#include "client/tool/report/moments.h"
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

}  // namespace

Answer runStatus(const Arguments& arguments) {
  ServiceReport report;
  report.service = queryService();
  report.logFolder = serviceLogFolder(arguments.logs);
  if (report.service && !report.service->program.empty()) {
    report.version = readFileVersion(report.service->program).productVersion;
  }
  report.settings = serviceSettings();
  if (report.service) report.settingsChanged = settingsChangedSinceStart(report.service->processId);
  report.logFolderExists = mayBeFolder(report.logFolder);
  // Read last: whatever else is shown, the outcome is the newest.
  report.history = readHistory(recordSource(arguments.logs), {1});
  return statusAnswer(report);
}

Answer runHistory(const Arguments& arguments) {
  const RecordSource source = recordSource(arguments.logs);
  return historyAnswer(source, FileUtils::join(source.folder, names::kHistory.narrow),
                       readHistory(source, wishOf(arguments)));
}

}  // namespace zarn::tool
