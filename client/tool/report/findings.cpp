#include "client/tool/report/findings.h"

#include <algorithm>

#include "client/tool/report/text.h"
#include "util/printable.h"

namespace zarn::tool {
namespace {

const char* resultOfCheck(const Finding& finding) {
  if (!finding.ok) return "WRONG";
  return finding.advice.empty() ? "ok" : "warning";
}

}  // namespace

std::string foundAndAdvised(const Finding& finding) {
  return finding.advice.empty() ? finding.found : clause(finding.found) + ". Next: " + finding.advice;
}

Answer doctorAnswer(const std::vector<Finding>& findings) {
  Answer answer;
  answer.exitCode = std::ranges::all_of(findings, &Finding::ok) ? ExitCode::Success : ExitCode::Refused;
  answer.json["checks"] = Json::array();
  std::vector<std::vector<std::string>> rows;
  for (const Finding& finding : findings) {
    const auto& [name, ok, found, advice] = finding;
    answer.json["checks"].push_back({{"name", name}, {"ok", ok}, {"found", found}, {"advice", advice}});
    rows.push_back({printable(name), resultOfCheck(finding), printable(foundAndAdvised(finding))});
  }
  answer.text = table({"CHECK", "RESULT", "FOUND"}, rows);
  return answer;
}

}  // namespace zarn::tool
