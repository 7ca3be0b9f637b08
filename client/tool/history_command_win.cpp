#include <algorithm>

#include "client/tool/commands.h"
#include "client/tool/files_win.h"
#include "client/tool/history_files_win.h"
#include "util/file_utils.h"
#include "util/printable.h"

#include "client/tool/text.h"
#include "util/product_names.h"

namespace zarn::tool {
namespace {

constexpr std::int64_t kMaximumBytes = std::int64_t{64} << 20;

}  // namespace

Answer runHistory(const Arguments& arguments) {
  const RecordSource source = recordSource(arguments.logs);
  const std::string file = FileUtils::join(source.folder, names::kHistory.narrow);
  StoredHistory stored = readHistory(source, kMaximumBytes);
  if (stored.error != 0 && !(isMissing(stored.error) && arguments.logs.empty())) {
    return failure(ExitCode::LocalFailure, sentence("The history in " + printable(source.folder) +
                                                    " cannot be read: " + problemText(stored.error)));
  }
  History& history = stored.history;
  if (arguments.last != 0 && history.records.size() > arguments.last) {
    history.records.erase(history.records.begin(), history.records.end() - arguments.last);
  }
  Answer answer;
  answer.json["file"] = file;
  answer.json["requests"] = Json::array();
  for (const UpdateRecord& record : history.records) answer.json["requests"].push_back(toJson(record));
  answer.json["skippedLines"] = history.skipped;
  answer.json["olderOmitted"] = stored.cut;
  answer.text = history.records.empty() ? "No requests are recorded in " + printable(source.folder) + "\n"
                                        : historyTable(history.records);
  if (history.skipped != 0) {
    answer.text += std::to_string(history.skipped) + " line(s) of the history could not be read.\n";
  }
  if (stored.cut) answer.text += "Older requests are left out; there are very many.\n";
  return answer;
}

}  // namespace zarn::tool
