// What zarn-update is given to read: records that anybody may have written beside a log,
// codes and command lines. Whatever they hold, its text stays printable and its object can
// be read.
#include <algorithm>
#include <sstream>
#include <vector>

#include "client/tool/report/command_line.h"
#include "client/tool/report/explanations.h"
#include "client/tool/report/history.h"
#include "client/tool/report/moments.h"
#include "client/tool/report/newest_requests.h"
#include "fuzz.h"

namespace {

using namespace zarn::tool;

void requireFit(const Answer& answer, const char* command) {
  for (const char c : answer.text + answer.error) {
    const auto byte = static_cast<unsigned char>(c);
    require(c == '\n' || (byte >= 0x20 && byte != 0x7f));
  }
  const std::string object = jsonText(answer, command);
  require(Json::parse(object).is_object() && std::ranges::all_of(object, [](char c) { return c > 0; }));
}

/// One sentence that ends in the help to read, or a command with arguments that may be used.
void judgeCommandLine(const std::vector<std::string>& words) {
  const CommandLine read = readCommandLine(words);
  if (const auto* const mistake = std::get_if<Mistake>(&read)) {
    const std::string& said = mistake->sentence;
    require(said.size() < 1200 && said.ends_with(" --help.") && said.find('\n') == std::string::npos);
    return requireFit(mistakeAnswer(*mistake), mistake->command == nullptr ? "" : mistake->command->name);
  }
  const auto& [command, arguments] = std::get<Invocation>(read);
  require(command->argument.mayBeEmpty || command->argument.isOptional || !arguments.target.empty() ||
          command->argument.kind == Argument::Kind::None);
  require(arguments.seconds <= kLongestWaitSeconds && arguments.last <= kMostRequests);
  if (command->verb == Verb::Help) requireFit(helpAnswer(arguments), "help");
}

LinesFromEnd linesOf(const std::string& text, std::int64_t most, std::size_t block) {
  const auto read = [&text](std::int64_t offset, std::size_t bytes) {
    return zarn::Result<std::string>(text.substr(static_cast<std::size_t>(offset), bytes));
  };
  return {std::ssize(text), most, read, block};
}

/// Read backwards in small blocks the lines are those that stand there.
void judgeLines(const std::string& text, std::int64_t most) {
  std::vector<std::string> wanted;
  std::size_t begin = text.size() - static_cast<std::size_t>(most);
  if (begin > 0) begin = std::min(text.find('\n', begin), text.size() - 1) + 1;  // the line that is cut
  for (std::size_t end; begin < text.size(); begin = end + 1) {
    end = std::min(text.find('\n', begin), text.size());
    std::string line = text.substr(begin, end - begin);
    if (line.find_first_not_of(" \t\r") != std::string::npos) wanted.push_back(std::move(line));
  }
  LinesFromEnd lines = linesOf(text, most, 1 + text.size() % 7);
  while (const auto line = lines.next()) {
    require(!wanted.empty() && *line == wanted.back());
    wanted.pop_back();
  }
  require(wanted.empty() && lines.isCut() == (most < std::ssize(text)));
}

}  // namespace

void judge(const std::string& text) {
  const auto size = std::ssize(text);
  const auto most = text.size() % 2 != 0 ? size / 2 : size;
  judgeLines(text, most);
  std::vector<RecordSequence> sequences(2);
  sequences[0].push_back(linesOf(text, size, 5));
  sequences[1].push_back(linesOf(text, most, 64));
  HistoryWish wish{text.size() % 4, text.size() % 3 == 0, {}};
  if (zarn::tool::momentFrom(text, {})) wish.since = text;
  const History found = newestRequests(std::move(sequences), wish);
  require(wish.last == 0 || found.records.size() <= wish.last);
  requireFit(historyAnswer({"folder", {}, true}, "file", found), "history");
  requireFit(explanationAnswer(text), "explain");
  std::vector<std::string> words;
  std::istringstream lines(text);
  for (std::string word; std::getline(lines, word);) words.push_back(word);
  judgeCommandLine(words);
}
