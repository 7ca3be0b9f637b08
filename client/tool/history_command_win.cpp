#include <algorithm>

#include "client/tool/commands.h"
#include "client/tool/files_win.h"
#include "client/tool/history.h"
#include "client/tool/service_setup_win.h"
#include "util/file_utils.h"
#include "util/printable.h"
#include "util/system_error.h"

#include "client/tool/text.h"

namespace zarn::tool {
namespace {

constexpr std::int64_t kMaximumBytes = std::int64_t{64} << 20;

}  // namespace

Answer runHistory(const Arguments& arguments) {
  const std::string file = FileUtils::join(serviceLogFolder(arguments.logs), kHistoryName);
  const FileEnd read = readEnd(file, kMaximumBytes);
  if (read.error != 0 && !(isMissing(read.error) && arguments.logs.empty())) {
    return failure(ExitCode::LocalFailure, sentence("The history " + printable(file) +
                                                    " cannot be read: " + systemErrorPhrase(read.error)));
  }
  History history = parseHistory(read.bytes);
  // The first line of what was read may have lost its beginning.
  if (read.cut && history.skipped > 0) --history.skipped;
  if (arguments.last != 0 && history.records.size() > arguments.last) {
    history.records.erase(history.records.begin(), history.records.end() - arguments.last);
  }
  Answer answer;
  answer.json["file"] = file;
  answer.json["requests"] = Json::array();
  for (const UpdateRecord& record : history.records) answer.json["requests"].push_back(toJson(record));
  answer.json["skippedLines"] = history.skipped;
  answer.json["olderOmitted"] = read.cut;
  answer.text = history.records.empty() ? "No requests are recorded in " + printable(file) + "\n"
                                        : historyTable(history.records);
  if (history.skipped != 0) {
    answer.text +=
        std::to_string(history.skipped) + " line(s) of " + printable(file) + " could not be read.\n";
  }
  if (read.cut) answer.text += "Older requests are left out; the file is very large.\n";
  return answer;
}

}  // namespace zarn::tool
