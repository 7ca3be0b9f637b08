// What zarn-update is given to read: records that anybody may have written beside a log,
// and codes. Whatever they hold, its text stays printable and its object can be read.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "client/tool/report/explanations.h"
#include "client/tool/report/history.h"

namespace {

using namespace zarn::tool;

void require(bool holds) {
  if (!holds) std::abort();
}

void requireFit(const Answer& answer, const char* command) {
  for (const char c : answer.text + answer.error) {
    const auto byte = static_cast<unsigned char>(c);
    require(c == '\n' || (byte >= 0x20 && byte != 0x7f));
  }
  require(Json::parse(jsonText(answer, command)).is_object());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::size_t half = size / 2;
  const bool isCut = size % 2 != 0;
  const History whole = parseHistory(text, isCut);
  require(whole.records.size() + whole.skipped <= size);
  const History merged = mergeByTime(parseHistory(text.substr(0, half)), whole);
  require(merged.records.size() >= whole.records.size() && merged.isCut == isCut);
  requireFit(historyAnswer({"folder", {}, true}, "file", merged, isCut ? 3 : 0), "history");
  requireFit(explanationAnswer(text), "explain");
  return 0;
}
