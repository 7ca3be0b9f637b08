// Keeps the log files that installers leave in the temporary directory.
#pragma once

namespace zarn {

/// Copies the installers' logs from the system temporary directory into
/// "Installer Logs" in the log directory. Never overwrites: of two logs of one
/// name the older stays. Every failure ends in a log line; what was copied stays.
void collectInstallerLogs();

}  // namespace zarn
