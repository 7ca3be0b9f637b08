// A command line is one sentence about what is wrong with it, or a command with arguments
// that may be used and that, written down in full, mean the same. Codes that are typed
// have an answer.
#include <set>
#include <sstream>
#include <vector>

#include "client/tool/report/command_line.h"
#include "client/tool/report/explanations.h"
#include "fuzz.h"
#include "fuzz_answer.h"

namespace {

using namespace zarn::tool;
using zarn::fuzz::require;
using zarn::fuzz::requireFit;
using Words = std::vector<std::string>;

/// What was read, written down again, one word for each thing.
Words writtenDown(const Command& command, const Arguments& read) {
  Words words{command.name};
  const Arguments usual;
  for (const OptionFacts& option : options()) {
    const auto write = [&](auto member) {
      const auto& value = read.*member;
      if (value == usual.*member) return;
      require(option.option == Option::AsJson || knows(command, option.option));
      if constexpr (std::is_same_v<decltype(member), bool Arguments::*>) words.emplace_back(option.name);
      if constexpr (std::is_same_v<decltype(member), std::string Arguments::*>)
        words.push_back(std::string(option.name) + "=" + value);
      if constexpr (std::is_same_v<decltype(member), std::uint32_t Arguments::*>)
        words.insert(words.end(), {option.name, std::to_string(value)});
    };
    std::visit(write, option.member);
  }
  if (!read.target.empty() || command.argument.mayBeEmpty) words.insert(words.end(), {"--", read.target});
  return words;
}

bool areSame(const Arguments& a, const Arguments& b) {
  return a.target == b.target && a.seconds == b.seconds && a.logs == b.logs && a.last == b.last &&
         a.since == b.since && a.all == b.all && a.failed == b.failed && a.list == b.list &&
         a.check == b.check && a.offline == b.offline && a.json == b.json;
}

void judgeWords(const Words& words) {
  const CommandLine read = readCommandLine(words);
  if (const auto* const mistake = std::get_if<Mistake>(&read)) {
    const std::string& said = mistake->sentence;
    require(said.size() < 1200 && said.ends_with(" --help.") && said.find('\n') == std::string::npos);
    if (said.size() % 4 != 0) return;  // what follows takes its time
    return requireFit(mistakeAnswer(*mistake), mistake->command == nullptr ? "" : mistake->command->name);
  }
  const auto& [command, arguments] = std::get<Invocation>(read);
  require(command->argument.mayBeEmpty || command->argument.isOptional || !arguments.target.empty() ||
          command->argument.kind == Argument::Kind::None);
  require(arguments.seconds <= kLongestWaitSeconds && arguments.last <= kMostRequests);
  const CommandLine again = readCommandLine(writtenDown(*command, arguments));
  const auto* const invocation = std::get_if<Invocation>(&again);
  require(invocation != nullptr && invocation->command == command &&
          areSame(invocation->arguments, arguments));
  static std::set<std::string> helped;  // there are few of them, and they are long
  if (command->verb == Verb::Help && helped.insert(arguments.target).second)
    requireFit(helpAnswer(arguments), "help");
}

void judgeCommandLine(const std::string& text) {
  Words words;
  std::istringstream lines(text);
  for (std::string word; std::getline(lines, word);) words.push_back(word);
  judgeWords(words);
  if (words.size() == 1) requireFit(explanationAnswer(text), "explain");
}

const zarn::fuzz::Target kCommandLine("command_line", judgeCommandLine);

}  // namespace
