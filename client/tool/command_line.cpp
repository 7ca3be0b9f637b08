#include "client/tool/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "client/tool/text.h"
#include "util/printable.h"
#include "util/product_version.h"

namespace zarn::tool {
namespace {

constexpr char kSummary[] = "Calls the Zarn Update Service of this machine and shows what it did.";
constexpr char kExitCodes[] =
    "Exit codes:\n"
    "  0  done, or trusted\n"
    "  1  refused or failed; the output says why\n"
    "  2  wrong arguments\n"
    "  3  the service is not installed, not running or not to be reached\n"
    "  4  something on this machine: an unreadable file, a full disk, an unwritable folder\n"
    "  5  interrupted: the answer did not come, what the service does is unknown\n"
    "\n"
    "With --json, standard output is one JSON object. Errors are one sentence on standard error.\n"
    "zarn-update COMMAND --help says more about a command.";

void declare(CLI::App& app, const Command& command, Arguments& arguments) {
  CLI::App* const sub = app.add_subcommand(command.name, command.summary);
  sub->footer(command.notes);
  if (command.argument != nullptr) {
    // A value that looks like an option, such as the code -2146762487, needs no "--" before it.
    sub->add_option(command.argument, arguments.target, command.argumentHelp)->required();
  }
  sub->add_flag("--json", arguments.json, "Print one JSON object instead of text");
  if (command.extra != Extra::None) {
    sub->add_option("--logs", arguments.logs, "Look at this Logs folder instead of the service's")
        ->type_name("DIR");
  }
  if (command.extra == Extra::LogsAndLast) {
    sub->add_option("--last", arguments.last, "Show only the last N requests")->type_name("N");
  }
}

const Command* chosenCommand(const CLI::App& app) {
  for (const Command& command : commands()) {
    if (app.got_subcommand(command.name)) return &command;
  }
  return nullptr;
}

Mistake mistake(const std::string& reason, const std::vector<std::string>& arguments) {
  const bool json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
  return {sentence("Wrong arguments: " + printable(reason) + "; see zarn-update --help"), json};
}

}  // namespace

CommandLine readCommandLine(const std::vector<std::string>& arguments) {
  Arguments read;
  CLI::App app(kSummary, "zarn-update");
  app.footer(kExitCodes);
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("zarn-update ") + kVersion + "\n", "Show the version");
  for (const Command& command : commands()) declare(app, command, read);
  try {
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    app.parse(reversed);
  } catch (const CLI::CallForVersion& version) {
    return Information{version.what()};
  } catch (const CLI::Success&) {
    return Information{app.help()};
  } catch (const CLI::ParseError& error) {
    return mistake(error.what(), arguments);
  }
  const Command* const command = chosenCommand(app);
  if (command == nullptr) return mistake("a command is required", arguments);
  return Invocation{command, read};
}

}  // namespace zarn::tool
