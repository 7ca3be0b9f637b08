// A command line is one command, at most one argument, and options of which each has at
// most one value; all of them in any order, but for the command before its argument.
#include "client/tool/report/command_line.h"

#include <algorithm>
#include <initializer_list>
#include <optional>
#include <utility>

#include "client/tool/report/text.h"
#include "client/tool/report/typos.h"
#include "os/text.h"
#include "util/printable.h"

namespace zarn::tool {
namespace {

using Words = std::vector<std::string>;

/// What was typed is shown so far.
constexpr std::size_t kLongestTyped = 60;

/// An option as it was typed.
struct Given {
  std::string name;
  /// Null for one that no command knows.
  const OptionFacts* facts = nullptr;
  /// What stands behind "=" or, when it may be a value, in the next place.
  std::optional<std::string> value;
  /// What stands in the next place and is no value.
  std::string instead;
};

/// The words of the command line, told apart.
struct Sorted {
  /// The command and its argument.
  Words words;
  std::vector<Given> given;
  bool wantsHelp = false;
  bool wantsVersion = false;
  bool wantsJson = false;
};

bool isOneOf(std::string_view text, std::initializer_list<std::string_view> names) {
  return std::ranges::find(names, text) != names.end();
}

/// Whether it is an option and no value: a number below zero and "-" are values.
bool looksLikeOption(std::string_view word) noexcept {
  return word.size() > 1 && word[0] == '-' && !(word[1] >= '0' && word[1] <= '9');
}

bool isFlag(const OptionFacts& option) noexcept {
  return *option.value == '\0';
}

const OptionFacts* optionNamed(std::string_view name) noexcept {
  const auto found =
      std::ranges::find_if(options(), [&](const OptionFacts& one) { return one.name == name; });
  return found == options().end() ? nullptr : &*found;
}

/// The option that `word` is; takes the next word, too, when that is its value.
Given optionAt(Words::const_iterator& word, Words::const_iterator end) {
  const std::size_t name = word->find('=');
  Given given;
  given.name = word->substr(0, name);
  given.facts = optionNamed(given.name);
  if (name != std::string::npos) given.value = word->substr(name + 1);
  const bool takesNext = given.facts != nullptr && !isFlag(*given.facts) && !given.value;
  if (!takesNext || word + 1 == end) return given;
  // An option whose value was forgotten must not swallow the option behind it.
  if (looksLikeOption(word[1])) {
    given.instead = word[1];
  } else {
    given.value = *++word;
  }
  return given;
}

Sorted sort(const Words& arguments) {
  Sorted sorted;
  bool optionsAreOver = false;
  for (auto word = arguments.begin(); word != arguments.end(); ++word) {
    if (!optionsAreOver && *word == "--") {
      optionsAreOver = true;
    } else if (!optionsAreOver && isOneOf(*word, {"--help", "-h", "-?", "/?"})) {
      sorted.wantsHelp = true;
    } else if (optionsAreOver || !looksLikeOption(*word)) {
      sorted.words.push_back(*word);
    } else {
      Given given = optionAt(word, arguments.end());
      const bool isJson = given.facts != nullptr && given.facts->option == Option::AsJson;
      sorted.wantsJson = sorted.wantsJson || isJson;
      sorted.wantsVersion = sorted.wantsVersion || isOneOf(given.name, {"--version", "-V"});
      sorted.given.push_back(std::move(given));
    }
  }
  return sorted;
}

/// " (did you mean status?)", or nothing.
std::string didYouMean(std::string_view typedName, std::span<const std::string_view> names) {
  const std::string_view meant = nearest(typedName, names);
  return meant.empty() ? "" : " (did you mean " + std::string(meant) + "?)";
}

std::string noSuchCommand(const std::string& name) {
  std::vector<std::string_view> names;
  for (const Command& one : commands()) names.emplace_back(one.name);
  return "there is no command " + typed(name) + didYouMean(name, names);
}

/// `command` is null when none was typed.
std::string noSuchOption(const Command* command, const std::string& name) {
  std::vector<std::string_view> names{"--help"};
  if (command == nullptr) names.emplace_back("--version");
  for (const OptionFacts& one : options())
    if (command == nullptr || knows(*command, one.option)) names.emplace_back(one.name);
  return (command == nullptr ? "there is" : std::string(command->name) + " has") + " no option " +
         typed(name) + didYouMean(name, names);
}

/// Reads a number; says behind "wants a number" what is wrong with it, if anything is.
std::string takeNumber(const std::string& text, std::uint32_t least, std::uint32_t most,
                       std::uint32_t& number) {
  const auto read = os::parseNumber<std::uint32_t>(text);
  if (read && *read >= least && *read <= most) {
    number = *read;
    return "";
  }
  const bool isNumber = text.find_first_not_of("-0123456789") == std::string::npos && !text.empty();
  const std::string range = " from " + std::to_string(least) + " to " + std::to_string(most);
  return (isNumber ? range : "") + ", not " + typed(text);
}

/// Puts the option's value where it belongs; says what is wrong with it, if anything is.
std::string take(const Given& given, Arguments& arguments) {
  const std::string name = given.facts->name;
  if (const auto* const flag = std::get_if<bool Arguments::*>(&given.facts->member)) {
    arguments.*(*flag) = true;
    return given.value ? name + " wants no value, not " + typed(*given.value) : "";
  }
  const auto* const number = std::get_if<std::uint32_t Arguments::*>(&given.facts->member);
  const std::string wanted = name + " wants a " + (number != nullptr ? "number" : given.facts->value);
  if (!given.value) return wanted + (given.instead.empty() ? "" : ", not " + typed(given.instead));
  if (number != nullptr) {
    const bool isSecond = arguments.*(*number) != 0;
    const std::string problem = takeNumber(*given.value, 1, kMostRequests, arguments.*(*number));
    if (!problem.empty()) return wanted + problem;
    return isSecond ? name + " was given twice" : "";
  }
  if (given.value->empty()) return wanted + ", not \"\"";
  auto& text = arguments.*std::get<std::string Arguments::*>(given.facts->member);
  return std::exchange(text, *given.value).empty() ? "" : name + " was given twice";
}

/// What is wrong with the words behind the command, if anything is.
std::string takeArgument(const Command& command, std::span<const std::string> words, Arguments& arguments) {
  const Argument& argument = command.argument;
  const std::string name = command.name;
  if (words.empty()) {
    const bool isMissing = argument.kind != Argument::Kind::None && !argument.isOptional;
    return isMissing ? name + " wants a " + argument.name : "";
  }
  const std::string& first = words.front();
  if (argument.kind == Argument::Kind::None) return name + " wants no argument, not " + typed(first);
  if (words.size() > 1) {
    const std::string count = words.size() == 2 ? "two" : std::to_string(words.size());
    const char* const unit = argument.kind == Argument::Kind::Seconds ? "number of " : "";
    return name + " wants one " + unit + argument.name + ", not " + count;
  }
  if (first.empty() && !argument.mayBeEmpty) return name + " wants a " + argument.name + ", not \"\"";
  arguments.target = first;
  if (argument.kind == Argument::Kind::Command)
    return commandNamed(first) == nullptr ? noSuchCommand(first) : "";
  if (argument.kind != Argument::Kind::Seconds) return "";
  const std::string problem = takeNumber(first, 0, kLongestWaitSeconds, arguments.seconds);
  return problem.empty() ? "" : name + " wants a number of " + argument.name + problem;
}

/// What is wrong with all that stands beside the command, if anything is.
std::string takeAll(const Command& command, const Sorted& sorted, Arguments& arguments) {
  for (const Given& given : sorted.given) {
    if (given.facts == nullptr || !knows(command, given.facts->option))
      return noSuchOption(&command, given.name);
    if (std::string problem = take(given, arguments); !problem.empty()) return problem;
  }
  std::string problem = takeArgument(command, std::span(sorted.words).subspan(1), arguments);
  if (problem.empty() && command.objection != nullptr) problem = command.objection(arguments);
  return problem;
}

Mistake mistake(const std::string& reason, bool json, const Command* command) {
  const bool isOfAll = command == nullptr || command->verb == Verb::Help;
  const std::string where = isOfAll ? "" : std::string(" ") + command->name;
  std::string text = sentence(reason + "; see zarn-update" + where + " --help");
  if (text.starts_with("there")) text[0] = 'T';
  return {std::move(text), json, command};
}

Invocation informing(const char* name, const Sorted& sorted, std::string about = {}) {
  Arguments arguments;
  arguments.target = std::move(about);
  arguments.json = sorted.wantsJson;
  return {commandNamed(name), arguments};
}

}  // namespace

std::string typed(std::string_view text) {
  const std::string shown = printable(cutText(text, kLongestTyped));
  const bool isClear = !text.empty() && text.find(' ') == std::string::npos;
  return isClear ? shown : '"' + shown + '"';
}

CommandLine readCommandLine(const std::vector<std::string>& arguments) {
  const Sorted sorted = sort(arguments);
  const bool json = sorted.wantsJson;
  if (sorted.words.empty()) {
    if (sorted.wantsHelp) return informing("help", sorted);
    if (sorted.wantsVersion) return informing("version", sorted);
    for (const Given& given : sorted.given)
      if (given.facts == nullptr) return mistake(noSuchOption(nullptr, given.name), json, nullptr);
    Mistake bare = mistake("A command is missing", json, nullptr);
    bare.isBare = std::ranges::all_of(
        sorted.given, [](const Given& given) { return given.facts->option == Option::AsJson; });
    return bare;
  }
  const std::string& name = sorted.words.front();
  const Command* const command = commandNamed(name);
  if (command == nullptr) return mistake(noSuchCommand(name), json, nullptr);
  // Who asks for help gets it, whatever else was typed.
  if (sorted.wantsHelp && command->verb != Verb::Help) return informing("help", sorted, name);
  Arguments read;
  const std::string problem = takeAll(*command, sorted, read);
  if (!problem.empty()) return mistake(problem, json, command);
  return Invocation{command, read};
}

}  // namespace zarn::tool
