#include "client/tool/commands.h"

namespace zarn::tool {
namespace {

constexpr Command kCommands[] = {
    {"check", "Ask the service whether it would accept a bundle's signature and signer", "BUNDLE",
     "The bundle, a file the service can read", Extra::None,
     "Exit code 0 when the bundle is trusted, 1 when it is refused. Nothing is run or copied.", runCheck},
    {"install", "Have the service install a bundle, and wait for it", "BUNDLE",
     "The bundle, an .exe file of at most 1 GiB", Extra::None,
     "Installs of several callers run one after the other; each may take some ten minutes. Exit code 0\n"
     "also when a reboot is required or begins. Ctrl+C ends the wait, not the installation.",
     runInstall},
    {"set-app-data", "Tell the service the media server's local application-data directory", "DIR",
     "An existing directory; the service's logs move to \"Zarn Media Server\\Logs\" in it", Extra::None,
     "An empty DIR (\"\") sends it back to its own account's folder. The service does not say whether it\n"
     "could use the directory; see status afterwards.",
     runSetAppData},
    {"verify", "Work out what the service would decide on a bundle, step by step", "BUNDLE",
     "The bundle; it is neither copied nor run", Extra::None,
     "Needs no service. Uses the service's own code, the account service and Resources\\cacert.pem beside\n"
     "this program; every check is made, as the service makes it. Exit code 0 when the bundle would be\n"
     "run, 1 when it would be refused.",
     runVerify},
    {"status", "Show the service's state, version, log folder and last outcome", nullptr, nullptr,
     Extra::Logs,
     "Exit code 0 when the service runs, 3 when it does not. The last outcome is that of history. Logs of\n"
     "the service's own account can be read by administrators only.",
     runStatus},
    {"history", "List the install requests that the service has answered", nullptr, nullptr,
     Extra::LogsAndLast,
     "Reads the record in \"Zarn Update Service\" of ProgramData, where only the service and administrators\n"
     "write: \"Update History.jsonl\" has the requests for which an installer ran, \"Refused "
     "Requests.jsonl\"\n"
     "the others, and a file with \".1\" in its name is the one before. With --logs DIR the folder "
     "\"Record\"\n"
     "in DIR is read, or DIR itself. --json gives every recorded key.",
     runHistory},
    {"explain", "Say what a code means and what to do", "CODE",
     "Decimal, negative or hexadecimal: 30004, -2146762496, 0x800b0100", Extra::None,
     "Knows the service's answers, exit codes of installers and of these programs, and errors of Windows.\n"
     "Exit code 1 when nothing is known of the code.",
     runExplain},
    {"collect-logs", "Copy the service's logs into a zip file or a folder", "ZIP-OR-DIR",
     "A free place; a zip file is made when it ends in .zip", Extra::Logs,
     "Takes the service's logs, its record of requests (into \"Record\"), Installer Logs and the output of\n"
     "status. Files of the media server in the same folder are left out. Exit code 4 when something could "
     "not be collected.",
     runCollectLogs},
};

}  // namespace

std::span<const Command> commands() noexcept {
  return kCommands;
}

}  // namespace zarn::tool
