// What zarn-update is given to read: records that anybody may have written beside a log,
// codes and command lines. Whatever they hold, its text stays printable and its object can
// be read.
#include <algorithm>
#include <sstream>
#include <vector>

#include "client/tool/report/command_line.h"
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

}  // namespace

void judge(const std::string& text) {
  const bool isCut = text.size() % 2 != 0;
  const History whole = parseHistory(text, isCut);
  require(whole.records.size() + whole.skipped <= text.size());
  const History merged = mergeByTime(parseHistory(text.substr(0, text.size() / 2)), whole);
  require(merged.records.size() >= whole.records.size() && merged.isCut == isCut);
  requireFit(historyAnswer({"folder", {}, true}, "file", merged, isCut ? 3 : 0), "history");
  requireFit(explanationAnswer(text), "explain");
  std::vector<std::string> words;
  std::istringstream lines(text);
  for (std::string word; std::getline(lines, word);) words.push_back(word);
  judgeCommandLine(words);
}
