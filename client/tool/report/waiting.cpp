#include "client/tool/report/waiting.h"

#include "client/tool/report/history.h"
#include "client/tool/report/text.h"
#include "update/record_folder.h"
#include "util/printable.h"

namespace zarn::tool {
namespace {

Json installingObject(const InstallUnderWay& installing) {
  return {{"path", installing.path}, {"since", installing.since}, {"processId", installing.processId}};
}

std::string installingInWords(const InstallUnderWay& installing) {
  if (installing.path.empty()) return "The service is installing an update.\n";
  return "The service is installing " + printable(installing.path) + ", since " +
         printable(installing.since) + ".\n";
}

}  // namespace

Result<std::uint32_t> processOf(const Result<ServiceFacts>& service) {
  if (!service) return failure(service.error());
  return service->processId;
}

Answer waitAnswer(const Result<std::optional<InstallUnderWay>>& installing,
                  std::chrono::milliseconds waited) {
  std::string unknown;
  if (!installing) {
    unknown =
        sentence("Whether the service is installing an update cannot be told, its record cannot be read: " +
                 recordProblem(installing.error()));
    if (installing.error() != SystemError(kFolderNotTrusted)) return failed(ExitCode::LocalFailure, unknown);
  }
  const bool isBusy = installing && *installing;
  Answer answer;
  answer.exitCode = isBusy ? ExitCode::Refused : ExitCode::Success;
  answer.text = isBusy            ? installingInWords(**installing)
                : unknown.empty() ? "The service is installing no update.\n"
                                  : unknown + "\n";
  answer.text += fields({{"Waited", duration(waited.count())}});
  answer.json["installing"] = isBusy ? installingObject(**installing) : Json(nullptr);
  answer.json["unknown"] = unknown.empty() ? Json(nullptr) : Json(unknown);
  answer.json["waitedMs"] = waited.count();
  return answer;
}

}  // namespace zarn::tool
