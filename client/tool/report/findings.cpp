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

Answer doctorAnswer(const std::vector<Finding>& findings) {
  Answer answer;
  answer.exitCode = std::ranges::all_of(findings, &Finding::ok) ? ExitCode::Success : ExitCode::Refused;
  answer.json["checks"] = Json::array();
  std::vector<std::vector<std::string>> rows;
  for (const Finding& finding : findings) {
    const auto& [name, ok, found, advice] = finding;
    answer.json["checks"].push_back({{"name", name}, {"ok", ok}, {"found", found}, {"advice", advice}});
    const std::string next = advice.empty() ? "" : ". Next: " + printable(advice);
    rows.push_back({printable(name), resultOfCheck(finding), printable(found) + next});
  }
  answer.text = table({"CHECK", "RESULT", "FOUND"}, rows);
  return answer;
}

}  // namespace zarn::tool
