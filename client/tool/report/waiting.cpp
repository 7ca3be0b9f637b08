#include "client/tool/report/waiting.h"

#include "client/tool/report/text.h"
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

bool isUnderWay(const InstallUnderWay& shown, const Result<ServiceFacts>& service) {
  if (!service) return !isNotInstalled(service.error());
  return service->processId != 0 && (shown.processId == 0 || shown.processId == service->processId);
}

Answer waitAnswer(const std::optional<InstallUnderWay>& installing, std::chrono::milliseconds waited) {
  Answer answer;
  answer.exitCode = installing ? ExitCode::Refused : ExitCode::Success;
  answer.text = installing ? installingInWords(*installing) : "The service is installing no update.\n";
  answer.text += fields({{"Waited", duration(waited.count())}});
  answer.json["installing"] = installing ? installingObject(*installing) : Json(nullptr);
  answer.json["waitedMs"] = waited.count();
  return answer;
}

}  // namespace zarn::tool
