#include "client/tool/report/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "client/tool/report/text.h"
#include "os/text.h"
#include "update/status.h"
#include "util/printable.h"
#include "util/product_version.h"

namespace zarn::tool {
namespace {

// The lines of these texts are broken by hand, since the parser prints them as they are.
constexpr auto kInstallArgument =
    os::joinedLiterals("The bundle, an .exe file of at most ", kMaximumBundleWords);

static_assert(kUsualWaitSeconds == 600 && kLongestWaitSeconds == 86'400);

constexpr Option kLogs[] = {Option::Logs};
constexpr Option kOffline[] = {Option::Offline};
constexpr Option kLogsAndLast[] = {Option::Logs, Option::Last};

constexpr Command kCommands[] = {
    {"check",
     "Ask the service whether it would accept a bundle's signature and signer",
     {Argument::Kind::Text, "BUNDLE", "The bundle, a file the service can read"},
     "Exit code 0 when the bundle is trusted, 1 when it is refused. Nothing is run or copied.",
     Verb::Check},
    {"install",
     "Have the service install a bundle, and wait for it",
     {Argument::Kind::Text, "BUNDLE", kInstallArgument.text},
     "Installs of several callers run one after the other; each may take some ten minutes. Exit code 0\n"
     "also when a reboot is required or begins. Ctrl+C ends the wait, not the installation.",
     Verb::Install},
    {"set-app-data",
     "Tell the service the media server's local application-data directory",
     {Argument::Kind::Text, "DIR",
      "An existing directory; the service's logs move to \"Zarn Media Server\\Logs\" in it"},
     "An empty DIR (\"\") sends it back to its own account's folder. The service does not say whether it\n"
     "could use the directory; see status afterwards.",
     Verb::SetAppData},
    {"verify",
     "Work out what the service would decide on a bundle, step by step",
     {Argument::Kind::Text, "BUNDLE", "The bundle; it is neither copied nor run"},
     "Needs no service. Uses the service's own code, the account service and the authorities in Resources\n"
     "beside this program; every check is made, as the service makes it. Exit code 0 when the bundle would "
     "be\n"
     "run, 1 when it would be refused.",
     Verb::Verify},
    {"status",
     "Show the service's state, version, log folder and last outcome",
     {},
     "Exit code 0 when the service runs, 3 when it does not. The last outcome is that of history. Logs of\n"
     "the service's own account can be read by administrators only.",
     Verb::Status,
     kLogs},
    {"history",
     "List the install requests that the service has answered",
     {},
     "Reads the record in \"Zarn Update Service\" of ProgramData, where only the service and administrators\n"
     "write: \"Update History.jsonl\" has the requests for which an installer ran, \"Refused "
     "Requests.jsonl\"\n"
     "the others, and a file with \".1\" in its name is the one before. With --logs DIR the folder "
     "\"Record\"\n"
     "in DIR is read, or DIR itself. --json gives every recorded key.",
     Verb::History,
     kLogsAndLast},
    {"explain",
     "Say what a code means and what to do",
     {Argument::Kind::Text, "CODE", "Decimal, negative or hexadecimal: 30004, -2146762496, 0x800b0100"},
     "Knows the service's answers, exit codes of installers and of these programs, and errors of Windows.\n"
     "Exit code 1 when nothing is known of the code.",
     Verb::Explain},
    {"collect-logs",
     "Copy the service's logs into a zip file or a folder",
     {Argument::Kind::Text, "ZIP-OR-DIR", "A free place; a zip file is made when it ends in .zip"},
     "Takes the service's logs, its record of requests (into \"Record\"), Installer Logs and the output of\n"
     "status. Files of the media server in the same folder are left out. Exit code 4 when something could "
     "not be collected.",
     Verb::CollectLogs,
     kLogs},
    {"wait",
     "Wait until the service is installing no update",
     {Argument::Kind::Seconds, "SECONDS", "For how long, 0 to 86400; without it 600"},
     "Exit code 0 as soon as it installs none, also when there is no service; 1 when it still does. "
     "Requests\n"
     "that only wait for their turn do not count. Nothing is cut short, by Ctrl+C neither.",
     Verb::Wait},
    {"doctor",
     "Look whether the configuration in force is of use to the service",
     {},
     "Checks the account service's host, the proxy, the syslog collector, the list of authorities and the\n"
     "temp folder, as the service would read them. Exit code 0 when all is well, warnings included, 1 when\n"
     "something is wrong. No password is shown.",
     Verb::Doctor,
     kOffline},
    {"purge-logs",
     "Delete what the service logged, its record of requests included",
     {},
     "Needs an administrator and a service that is stopped or removed. Deletes the logs of the service's\n"
     "account and of the current user where they lie now; other files stay, and no link is followed. Exit\n"
     "code 4 when something could not be deleted, after the rest was.",
     Verb::PurgeLogs},
};

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

void declareArgument(CLI::App& app, const Argument& argument, Arguments& arguments) {
  switch (argument.kind) {
    case Argument::Kind::None:
      return;
    case Argument::Kind::Text:
      // A value that looks like an option, such as the code -2146762487, needs no "--" before it.
      app.add_option(argument.name, arguments.target, argument.help)->required();
      return;
    case Argument::Kind::Seconds:
      app.add_option(argument.name, arguments.seconds, argument.help)
          ->type_name("")
          ->check(CLI::Range(0U, kLongestWaitSeconds).description(""));
      return;
  }
}

void declareOption(CLI::App& app, Option option, Arguments& arguments) {
  switch (option) {
    case Option::Logs:
      app.add_option("--logs", arguments.logs, "Look at this Logs folder instead of the service's")
          ->type_name("DIR");
      return;
    case Option::Last:
      app.add_option("--last", arguments.last, "Show only the last N requests")->type_name("N");
      return;
    case Option::Offline:
      app.add_flag("--offline", arguments.offline, "Make only checks that do not use the network");
      return;
  }
}

void declare(CLI::App& app, const Command& command, Arguments& arguments) {
  CLI::App* const sub = app.add_subcommand(command.name, command.summary);
  sub->footer(command.notes);
  declareArgument(*sub, command.argument, arguments);
  sub->add_flag("--json", arguments.json, "Print one JSON object instead of text");
  for (const Option option : command.options) declareOption(*sub, option, arguments);
}

const Command* chosenCommand(const CLI::App& app) {
  for (const Command& command : commands()) {
    if (app.got_subcommand(command.name)) return &command;
  }
  return nullptr;
}

/// The arguments could not be read, so that the wish for JSON is looked for by hand:
/// a script that asks for an object gets one also when it asks wrongly.
Mistake mistake(const std::string& reason, const std::vector<std::string>& arguments) {
  const bool json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
  return {sentence("Wrong arguments: " + printable(reason) + "; see zarn-update --help"), json};
}

}  // namespace

std::span<const Command> commands() noexcept {
  return kCommands;
}

std::string usageOf(const Command& command) {
  const Argument& argument = command.argument;
  switch (argument.kind) {
    case Argument::Kind::None:
      break;
    case Argument::Kind::Text:
      return std::string(command.name) + " " + argument.name;
    case Argument::Kind::Seconds:
      return std::string(command.name) + " [" + argument.name + "]";
  }
  return command.name;
}

CommandLine readCommandLine(const std::vector<std::string>& arguments) {
  // The parser keeps references to it until it has read the last argument.
  Arguments read;
  CLI::App app(kSummary, "zarn-update");
  app.footer(kExitCodes);
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("zarn-update ") + kVersion + "\n", "Show the version");
  for (const Command& command : commands()) declare(app, command, read);
  try {
    // The parser takes its arguments from the end of the list.
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
