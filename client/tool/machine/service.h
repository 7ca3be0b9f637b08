// The update service as it is installed on this machine: its state, its environment
// and its folders.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/tool/report/service_state.h"
#include "os/system_error.h"

namespace zarn::tool {

/// What the service control manager knows; fails when it gives no answer.
[[nodiscard]] Result<ServiceFacts> queryService();

/// Gives this process the product's and the proxies' variables of the machine and
/// those set for the service alone, in place of this user's, so that what the tool
/// works out is what the service would; on a machine without the service they stay.
/// Then puts the machine's policy in their place, as the service does. Not while other
/// threads read the environment.
void adoptServiceEnvironment();

/// When a process started, in the units of FILETIME; nothing when that cannot be told, as by
/// who may not look at it.
[[nodiscard]] std::optional<std::uint64_t> processStart(std::uint32_t processId);

/// The version that a running service wrote into its log in the folder `logs`; nothing when it
/// does not run, or the log is older than its process or cannot be read.
[[nodiscard]] std::optional<std::string> versionRunning(const ServiceFacts& service, const std::string& logs);

/// "Resources" beside the service's program; beside this one when there is no service.
[[nodiscard]] std::string serviceResources(const Result<ServiceFacts>& service);

/// The part of HKEY_USERS that the service's account has, with its backslash.
[[nodiscard]] std::wstring serviceAccountKey();

/// Where the product's folder with the service's logs may lie: for the service's account
/// and for the current user the folder that was chosen, when the service would use it, and
/// the account's own; LocalSystem's also when there is no service any more. Adopts the
/// service's environment.
[[nodiscard]] std::vector<std::string> applicationDataFolders();

/// The service's Logs folder: the one of the account it runs as or of the current
/// user, whichever has the service's newest log; its account's when neither has
/// one. `given`, when not empty, is the answer. Adopts the service's environment.
[[nodiscard]] std::string serviceLogFolder(const std::string& given);

/// Logs folders in which logs of the service still lie, other than `current`, which it writes
/// to: those that applicationDataFolders() names, each once. What this user may not look into
/// is left out. Adopts the service's environment.
[[nodiscard]] std::vector<std::string> earlierLogFolders(const std::string& current);

}  // namespace zarn::tool
