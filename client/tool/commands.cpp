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
     "The service does not say whether it could use the directory; see status afterwards.", runSetAppData},
    {"status", "Show the service's state, version, log folder and last outcome", nullptr, nullptr,
     Extra::Logs, "Exit code 0 when the service runs, 3 when it does not.", runStatus},
};

}  // namespace

std::span<const Command> commands() noexcept {
  return kCommands;
}

}  // namespace zarn::tool
