// What --help, --version and a command line that makes no sense are answered with.
#include <algorithm>
#include <string>

#include "client/tool/report/command_line.h"
#include "util/product_version.h"

namespace zarn::tool {
namespace {

constexpr char kBeginning[] =
    "Calls the Zarn Update Service of this machine and shows what it did.\n"
    "\n"
    "Usage: zarn-update COMMAND [OPTIONS]\n"
    "\n"
    "Commands:\n";
constexpr char kEnd[] =
    "\n"
    "Exit codes:\n"
    "  0  done, or trusted\n"
    "  1  refused or failed; the output says why\n"
    "  2  wrong arguments\n"
    "  3  the service is not installed, not running or not to be reached\n"
    "  4  something on this machine: an unreadable file, a full disk, an unwritable folder\n"
    "  5  interrupted: the answer did not come, what the service does is unknown\n"
    "\n"
    "With --json, standard output is one JSON object. Errors are one sentence on standard error.\n"
    "What begins with a slash is a path, and \"--\" stands before an argument that begins with a dash.\n"
    "zarn-update COMMAND --help says more about a command.\n";

std::string row(std::string name, const std::string& text) {
  constexpr std::size_t column = 26;
  name.append(column - std::min(column, name.size()), ' ');
  return "  " + name + " " + text + "\n";
}

std::string helpOnAll() {
  std::string text = kBeginning;
  for (const Command& command : commands()) text += row(usageOf(command), command.summary);
  text += "\nOptions of every command:\n";
  for (const OptionFacts& option : options())
    if (option.option == Option::AsJson) text += row(usageOf(option), option.help);
  text += row("--help, -h, -?, /?", "Show the help of the command");
  text += "Without a command:\n" + row("--version, -V", "Show the version");
  return text + kEnd;
}

std::string helpOn(const Command& command) {
  const Argument& argument = command.argument;
  std::string text =
      std::string(command.summary) + "\n\nUsage: zarn-update " + usageOf(command) + " [OPTIONS]\n\n";
  if (argument.kind != Argument::Kind::None) text += row(argument.name, argument.help);
  for (const OptionFacts& option : options())
    if (knows(command, option.option)) text += row(usageOf(option), option.help);
  const std::string notes = command.notes;
  return notes.empty() ? text : text + "\n" + notes + "\n";
}

}  // namespace

std::string helpText(const Command* command) {
  return command == nullptr ? helpOnAll() : helpOn(*command);
}

Answer helpAnswer(const Arguments& arguments) {
  Answer answer;
  answer.text = helpText(commandNamed(arguments.target));
  answer.json["text"] = answer.text;
  return answer;
}

Answer versionAnswer() {
  Answer answer;
  answer.text = std::string("zarn-update ") + kVersion + "\n";
  answer.json["version"] = kVersion;
  return answer;
}

Answer mistakeAnswer(const Mistake& mistake) {
  Answer answer = failed(ExitCode::WrongArguments, mistake.sentence);
  // Who types nothing but the name wants to know what there is; a script gets its sentence.
  if (mistake.isBare && !mistake.json) answer.text = helpText(nullptr), answer.error.clear();
  return answer;
}

}  // namespace zarn::tool
