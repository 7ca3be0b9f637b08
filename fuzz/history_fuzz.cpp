// What zarn-update is given to read: records that anybody may have written beside a log,
// and codes. Whatever they hold, its text stays printable and its object can be read.
#include "client/tool/report/explanations.h"
#include "client/tool/report/history.h"
#include "fuzz.h"

namespace {

using namespace zarn::tool;

void requireFit(const Answer& answer, const char* command) {
  for (const char c : answer.text + answer.error) {
    const auto byte = static_cast<unsigned char>(c);
    require(c == '\n' || (byte >= 0x20 && byte != 0x7f));
  }
  require(Json::parse(jsonText(answer, command)).is_object());
}

}  // namespace

void judge(const std::string& text) {
  const bool isCut = text.size() % 2 != 0;
  const History whole = parseHistory(text, isCut);
  require(whole.records.size() + whole.skipped <= text.size());
  const History merged = mergeByTime(parseHistory(text.substr(0, text.size() / 2)), whole);
  require(merged.records.size() >= whole.records.size() && merged.isCut == isCut);
  requireFit(historyAnswer({"folder", {}, true}, "file", merged, isCut ? 3 : 0), "history");
  requireFit(explanationAnswer(text), "explain");
}
