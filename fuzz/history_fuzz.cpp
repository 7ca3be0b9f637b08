// Records that anybody may have written beside a log. Whatever they hold, those that are
// shown are those that stand there, the text stays printable and the object can be read.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "client/tool/report/history.h"
#include "client/tool/report/moments.h"
#include "client/tool/report/newest_requests.h"
#include "fuzz.h"
#include "fuzz_answer.h"

namespace {

using namespace zarn::tool;
using zarn::fuzz::require;
using Lines = std::vector<std::string>;

LinesFromEnd linesOf(const std::string& text, std::int64_t most, std::size_t block) {
  const auto read = [&text](std::int64_t offset, std::size_t bytes) {
    return zarn::Result<std::string>(text.substr(static_cast<std::size_t>(offset), bytes));
  };
  return {std::ssize(text), most, read, block};
}

/// Of the last bytes, as they stand there; without the line that is cut.
Lines linesIn(const std::string& text, std::int64_t most) {
  Lines lines;
  std::size_t begin = text.size() - static_cast<std::size_t>(most);
  if (begin > 0) begin = std::min(text.find('\n', begin), text.size() - 1) + 1;
  for (std::size_t end; begin < text.size(); begin = end + 1) {
    end = std::min(text.find('\n', begin), text.size());
    std::string line = text.substr(begin, end - begin);
    if (line.find_first_not_of(" \t\r") != std::string::npos) lines.push_back(std::move(line));
  }
  return lines;
}

/// Read backwards in small blocks the lines are the same.
void judgeLines(const std::string& text, std::int64_t most) {
  Lines wanted = linesIn(text, most);
  LinesFromEnd lines = linesOf(text, most, 1 + text.size() % 7);
  while (const auto line = lines.next()) {
    require(!wanted.empty() && *line == wanted.back());
    wanted.pop_back();
  }
  require(wanted.empty() && lines.isCut() == (most < std::ssize(text)));
}

/// The newest of one file are the last that are wanted.
void judgeOneFile(const std::string& text, const HistoryWish& wish) {
  std::vector<nlohmann::ordered_json> wanted;
  for (const std::string& line : linesIn(text, std::ssize(text)))
    if (const auto record = zarn::parseRecord(line);
        record && !(wish.onlyFailed && isSuccess(record->status))) {
      wanted.push_back(toJson(*record));
      const auto again = zarn::parseRecord(zarn::recordLine(*record));
      require(again && zarn::recordLine(*again) == zarn::recordLine(*record));
    }
  std::vector<RecordSequence> one(1);
  one[0].push_back(linesOf(text, std::ssize(text), 64));
  const History found = newestRequests(std::move(one), wish);
  require(found.records.size() == (wish.last == 0 ? wanted.size() : std::min(wish.last, wanted.size())));
  for (std::size_t i = 0; i < found.records.size(); ++i)
    require(toJson(found.records[i]) == wanted[wanted.size() - found.records.size() + i]);
}

void judgeHistory(const std::string& text) {
  const auto size = std::ssize(text);
  const auto most = text.size() % 2 != 0 ? size / 2 : size;
  judgeLines(text, most);
  HistoryWish wish{text.size() % 5, text.size() % 3 == 0};
  if (text.size() % 4 < 2) return judgeOneFile(text, wish);  // each takes its time
  std::vector<RecordSequence> sequences(2);
  sequences[0].push_back(linesOf(text, size, 5));
  sequences[1].push_back(linesOf(text, most, 64));
  if (momentFrom(text, {})) wish.since = text;
  const History found = newestRequests(std::move(sequences), wish);
  require(wish.last == 0 || found.records.size() <= wish.last);
  zarn::fuzz::requireFit(historyAnswer({"folder", {}, true}, "file", found), "history");
}

const zarn::fuzz::Target kHistory("history", judgeHistory);

}  // namespace
