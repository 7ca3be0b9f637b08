#include <algorithm>
#include <utility>

#include "client/tool/report/command_line.h"
#include "client/tool/report/moments.h"
#include "os/text.h"
#include "update/status.h"

namespace zarn::tool {
namespace {

// The lines of these texts are broken by hand, since the help shows them as they are.
constexpr auto kInstallArgument =
    os::joinedLiterals("The bundle, an .exe file of at most ", kMaximumBundleWords);

static_assert(kUsualWaitSeconds == 600 && kLongestWaitSeconds == 86'400);

constexpr Option kOfStatus[] = {Option::Check, Option::Logs};
constexpr Option kOfHistory[] = {Option::Last, Option::All, Option::Failed, Option::Since, Option::Logs};
constexpr Option kOfExplain[] = {Option::List};
constexpr Option kOfCollectLogs[] = {Option::Logs};
constexpr Option kOfDoctor[] = {Option::Offline};

constexpr OptionFacts kOptions[] = {
    {Option::Logs, "--logs", "DIR", "Look at this Logs folder instead of the service's", &Arguments::logs},
    {Option::Last, "--last", "N", "Show only the newest N requests", &Arguments::last},
    {Option::All, "--all", "", "Show every request, not only the newest 20", &Arguments::all},
    {Option::Failed, "--failed", "", "Show only requests that were refused or failed", &Arguments::failed},
    {Option::Since, "--since", "TIME", "Show only requests from then on: 2026-11-21 (UTC), 7d, 24h",
     &Arguments::since},
    {Option::List, "--list", "", "List the codes that are known", &Arguments::list},
    {Option::Check, "--check", "", "Say only whether all is well, for monitoring", &Arguments::check},
    {Option::Offline, "--offline", "", "Make only checks that do not use the network", &Arguments::offline},
    {Option::AsJson, "--json", "", "Print one JSON object instead of text", &Arguments::json},
};

std::string objectionToHistory(const Arguments& arguments) {
  if (arguments.all && arguments.last != 0) return "--last and --all contradict each other";
  const bool isTime = arguments.since.empty() || momentFrom(arguments.since, {});
  return isTime ? "" : "--since wants a time such as " + (kMomentForms + (", not " + typed(arguments.since)));
}

std::string objectionToExplain(const Arguments& arguments) {
  if (arguments.list && !arguments.target.empty()) return "explain wants a CODE or --list, not both";
  return !arguments.list && arguments.target.empty() ? "explain wants a CODE, or --list" : "";
}

/// Who asks for such a file would get a folder of that name.
std::string objectionToCollectLogs(const Arguments& arguments) {
  constexpr std::string_view others[] = {".tar", ".gz",  ".tgz", ".bz2", ".tbz", ".xz",  ".txz", ".zst",
                                         ".7z",  ".rar", ".cab", ".lzh", ".lz4", ".iso", ".wim", ".zipx"};
  const std::string_view target = arguments.target;
  const bool isOther = std::ranges::any_of(others, [&](std::string_view extension) {
    return target.size() > extension.size() &&
           os::equalsIgnoringCase(target.substr(target.size() - extension.size()), extension);
  });
  return isOther ? "collect-logs makes a zip file (its name ends in .zip) or a folder, not " + typed(target)
                 : "";
}

constexpr Command kCommands[] = {
    {"check",
     "Ask the service whether it would accept a bundle's signature and signer",
     {Argument::Kind::Path, "BUNDLE", "The bundle, a file the service can read"},
     "Exit code 0 when the bundle is trusted, 1 when it is refused. Nothing is run or copied.",
     Verb::Check},
    {"install",
     "Have the service install a bundle, and wait for it",
     {Argument::Kind::Path, "BUNDLE", kInstallArgument.text},
     "Installs of several callers run one after the other; each may take some ten minutes. Exit code 0\n"
     "also when a reboot is required or begins. Ctrl+C ends the wait, not the installation.",
     Verb::Install},
    {"set-app-data",
     "Tell the service the media server's local application-data directory",
     {Argument::Kind::Path, "DIR",
      "An existing directory; the service's logs move to \"Zarn Media Server\\Logs\" in it", false, true},
     "An empty DIR (\"\") sends it back to its own account's folder. The service does not say whether it\n"
     "could use the directory; see status afterwards.",
     Verb::SetAppData},
    {"verify",
     "Work out what the service would decide on a bundle, step by step",
     {Argument::Kind::Path, "BUNDLE", "The bundle; it is neither copied nor run"},
     "Needs no service. Uses the service's own code, the account service and the authorities in Resources\n"
     "beside this program; every check is made, as the service makes it. Exit code 0 when the bundle would "
     "be\n"
     "run, 1 when it would be refused.",
     Verb::Verify},
    {"status",
     "Show what the service is doing and works with, and its last outcome",
     {},
     "Exit code 0 when the service runs, 3 when it does not. The last outcome is that of history. Logs of\n"
     "the service's own account can be read by administrators only. With --check one line for monitoring:\n"
     "exit code 1 also when the last update failed (a refused request is only mentioned), or when\n"
     "doctor --offline finds something wrong with the configuration.",
     Verb::Status,
     kOfStatus},
    {"history",
     "List the install requests that the service has answered",
     {},
     "Reads the record in \"Zarn Update Service\" of ProgramData, where only the service and administrators\n"
     "write: \"Update History.jsonl\" has the requests for which an installer ran, \"Refused "
     "Requests.jsonl\"\n"
     "the others, and a file with \".1\" in its name is the one before. With --logs DIR the folder "
     "\"Record\"\n"
     "in DIR is read, or DIR itself. --last, --all and --since show another number than the newest 20.\n"
     "TIME is a day, a day and a time (2026-11-21T10:15:00Z), or a span before now in m, h, d or w; all in\n"
     "UTC. --json gives every recorded key.",
     Verb::History,
     kOfHistory,
     objectionToHistory},
    {"explain",
     "Say what a code means and what to do",
     {Argument::Kind::Text, "CODE", "A number or a name: 30004, -2146762496, 0x800b0100, CERT_E_CHAINING",
      true},
     "Knows the service's answers, exit codes of installers and of these programs, and errors of Windows.\n"
     "Exit code 1 when nothing is known of the code.",
     Verb::Explain,
     kOfExplain,
     objectionToExplain},
    {"collect-logs",
     "Copy the service's logs into a zip file or a folder",
     {Argument::Kind::Path, "ZIP-OR-DIR", "A free place; a zip file is made when it ends in .zip"},
     "Takes the service's logs, also from folders where it logged before, its record of requests (into\n"
     "\"Record\"), Installer Logs, the package's logs, the service's newest events, the output of status "
     "and\n"
     "of doctor --offline, and the system's version. Files of the media server in the same folder are left\n"
     "out. Exit code 4 when something could not be collected.",
     Verb::CollectLogs,
     kOfCollectLogs,
     objectionToCollectLogs},
    {"wait",
     "Wait until the service is installing no update",
     {Argument::Kind::Seconds, "SECONDS", "For how long, 0 to 86400; without it 600", true},
     "Exit code 0 as soon as it installs none, also when there is no service; 1 when it still does. "
     "Requests\n"
     "that only wait for their turn do not count. Nothing is cut short, by Ctrl+C neither.",
     Verb::Wait},
    {"doctor",
     "Look at everything that an update needs",
     {},
     "Checks settings, authorities, folders, disk, policy, the service and its endpoint, then name\n"
     "resolution, the list of approved certificates, the clock and revocation. Exit code 0 when all is\n"
     "well, warnings included, 1 when something is wrong. With --offline the last four are left out, and a\n"
     "service that is not installed or does not run is only a warning. Ends within two minutes. No\n"
     "password is shown.",
     Verb::Doctor,
     kOfDoctor},
    {"purge-logs",
     "Delete what the service logged, its record of requests included",
     {},
     "Needs an administrator and a service that is stopped or removed. Deletes the logs of the service's\n"
     "account and of the current user where they lie now; other files stay, and no link is followed. Exit\n"
     "code 4 when something could not be deleted, after the rest was.",
     Verb::PurgeLogs},
    {"completion",
     "Print a script that has PowerShell complete commands, options and paths",
     {},
     "In the file that $PROFILE names: zarn-update completion | Out-String | Invoke-Expression",
     Verb::Completion},
    {"version", "Show the version of this program", {}, "That of the service is in status.", Verb::Version},
    {"help",
     "Show what there is, or what there is to know about a command",
     {Argument::Kind::Command, "COMMAND", "The command; without it all of them", true},
     "",
     Verb::Help},
};

}  // namespace

std::span<const Command> commands() noexcept {
  return kCommands;
}

const Command* commandNamed(const std::string& name) noexcept {
  const auto found = std::ranges::find_if(kCommands, [&](const Command& one) { return one.name == name; });
  return found == std::end(kCommands) ? nullptr : found;
}

std::span<const OptionFacts> options() noexcept {
  return kOptions;
}

bool knows(const Command& command, Option option) noexcept {
  return option == Option::AsJson || std::ranges::find(command.options, option) != command.options.end();
}

std::string usageOf(const Command& command) {
  const Argument& argument = command.argument;
  if (argument.kind == Argument::Kind::None) return command.name;
  const auto [before, after] = argument.isOptional ? std::pair(" [", "]") : std::pair(" ", "");
  return std::string(command.name) + before + argument.name + after;
}

std::string usageOf(const OptionFacts& option) {
  const std::string value = option.value;
  return option.name + (value.empty() ? "" : " " + value);
}

}  // namespace zarn::tool
