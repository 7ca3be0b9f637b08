// status and history: what the service is, and what it has answered.
#include "client/tool/commands/commands.h"
#include "client/tool/machine/files.h"
#include "client/tool/machine/record.h"
#include "client/tool/machine/service.h"
#include "client/tool/machine/settings.h"
#include "util/file_utils.h"
#include "util/product_names.h"
#include "util/product_version.h"

namespace zarn::tool {
namespace {

/// Of each file. The last outcome stands at an end; who lists wants all that a record
/// folder keeps, with room for files that somebody has kept from being renamed.
constexpr std::int64_t kStatusBytes = std::int64_t{1} << 20;
constexpr std::int64_t kHistoryBytes = std::int64_t{64} << 20;

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
  report.history = readHistory(recordSource(arguments.logs), kStatusBytes);
  return statusAnswer(report);
}

Answer runHistory(const Arguments& arguments) {
  const RecordSource source = recordSource(arguments.logs);
  return historyAnswer(source, FileUtils::join(source.folder, names::kHistory.narrow),
                       readHistory(source, kHistoryBytes), arguments.last);
}

}  // namespace zarn::tool
