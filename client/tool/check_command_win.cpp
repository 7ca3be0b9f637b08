#include "client/tool/commands.h"
#include "client/tool/service_call_win.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn::tool {

Answer runCheck(const Arguments& arguments) {
  const std::wstring bundle = absolutePath(arguments.target);
  if (auto problem = missingFile(bundle)) return *problem;
  const auto result = client::UpdateClient().checkBundle(bundle);
  if (!result.ok()) return noAnswer(result.error());
  Answer answer;
  const bool trusted = result.value() == client::kInstalled;
  const std::string shown = printable(StringUtils::utf16to8(bundle));
  answer.json["bundle"] = StringUtils::utf16to8(bundle);
  answer.json["trusted"] = trusted;
  answer.text = (trusted ? "Trusted: " : "Refused: ") + shown + "\n";
  describeVerdict(answer, result.value());
  return answer;
}

}  // namespace zarn::tool
