#include <fmt/format.h>

#include "client/tool/commands.h"
#include "client/tool/explanations.h"
#include "client/tool/text.h"
#include "os/error_text.h"
#include "util/printable.h"

namespace zarn::tool {
namespace {

std::string capitalized(std::string_view clause) {
  std::string text(clause);
  if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') text[0] = static_cast<char>(text[0] - 'a' + 'A');
  return sentence(text);
}

void add(Answer& answer, const Explanation& row) {
  std::string title(kindName(row.kind));
  if (!row.name.empty()) title += ", " + std::string(row.name);
  answer.text += "\n  As " + title + ":\n    " + capitalized(row.meaning) +
                 "\n    Next: " + capitalized(row.advice) + "\n";
  answer.json["entries"].push_back({{"kind", kindKey(row.kind)},
                                    {"code", row.code},
                                    {"name", row.name},
                                    {"meaning", row.meaning},
                                    {"advice", row.advice}});
}

}  // namespace

Answer runExplain(const Arguments& arguments) {
  const auto code = parseCode(arguments.target);
  if (!code) {
    return failure(ExitCode::WrongArguments,
                   sentence("This is not a code of 32 bits: " + printable(arguments.target)));
  }
  Answer answer;
  const std::string words = systemErrorPhrase(*code);
  answer.json["code"] = *code;
  answer.json["signed"] = static_cast<std::int32_t>(*code);
  answer.json["hex"] = fmt::format("0x{:08x}", *code);
  answer.json["entries"] = Json::array();
  answer.json["systemText"] = words;
  answer.text = fmt::format("{} (0x{:08x}, {})\n", *code, *code, static_cast<std::int32_t>(*code));
  for (const Explanation& row : explain(*code)) add(answer, row);
  if (const auto inside = win32ErrorInside(*code)) {
    if (const Explanation* row = explain(CodeKind::System, *inside)) add(answer, *row);
  }
  if (!words.empty()) answer.text += "\n  Windows says: " + printable(words) + "\n";
  if (answer.json["entries"].empty() && words.empty()) {
    answer.exitCode = ExitCode::Refused;
    answer.text += "\n  Nothing is known of this code.\n";
  }
  return answer;
}

}  // namespace zarn::tool
