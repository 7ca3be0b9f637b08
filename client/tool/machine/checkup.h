// Looking at what an update needs: the checks of `doctor`. Texts are UTF-8.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/tool/machine/side_by_side.h"
#include "client/tool/report/checks.h"
#include "client/tool/report/findings.h"
#include "client/tool/report/settings.h"
#include "trust/update_policy.h"
#include "util/policy_settings.h"

namespace zarn::tool {

/// No check is waited for longer, so that all of them, side by side, come to an end soon after.
inline constexpr std::chrono::seconds kCheckLimit{90};

/// Whether to make the checks that use the network. Without it the service itself is only worth
/// a warning, since the package asks before it has started it.
enum class Network : std::uint8_t { Use, LeaveOut };

/// Every check. Adopts the service's environment, and takes the process's log and preferences;
/// once a process, which must end without waiting for its threads.
[[nodiscard]] std::vector<Finding> checkMachine(Network network);

/// Of these the ones on configuration and folders, without the service and the network.
/// Adopts the service's environment.
[[nodiscard]] std::vector<Finding> checkConfiguration();

// Each check on what it is given.

// `place` is what has to be set to have another value (see placeOf). A password is not shown.
[[nodiscard]] Finding checkAccountService(const std::string& host, const std::string& place);
[[nodiscard]] Finding checkProxy(const std::string& place, const std::string& text);

/// The variables of central collection; one that is set and empty is a mistake.
[[nodiscard]] Finding checkCollector(const std::optional<std::string>& collector,
                                     const std::optional<std::string>& minutes,
                                     const std::vector<Setting>& settings);

/// The folder of the service's private copies; empty when nothing names one, nothing when this
/// user may not know.
[[nodiscard]] Finding checkTempFolder(const std::optional<std::string>& folder);

/// The same, who may write to it when it is there, and the room on its drive.
[[nodiscard]] std::vector<Finding> checkTemp(const std::optional<std::string>& folder);

/// The machine's policy: values that cannot be used, and rules whose state cannot be read.
[[nodiscard]] Finding checkPolicy(const StoredSettings& stored, const StoredPolicy& rules,
                                  const UpdatePolicy& builtIn);

/// Without port, brackets and sign-in; empty when the text is no address.
[[nodiscard]] std::string hostOf(const std::string& address);

// ---- Of the service and the network; each may take its time ---------------------------

/// Whether the system answers at the service's endpoint.
[[nodiscard]] Finding checkEndpoint();

/// By the service's own check of a signature, on its own `program`.
[[nodiscard]] Finding checkRevocation(const std::string& program);

/// `proxy`: an address, or empty for none; `bypass`: the hosts that need none.
[[nodiscard]] Finding checkNames(const std::string& host, const std::string& proxy,
                                 const std::string& bypass);

/// Asks the account service by the service's own code, trusting the authorities in a file.
[[nodiscard]] ListAnswer askAccountService(const std::string& host, const std::string& authorities);

}  // namespace zarn::tool
