// The environment variables that a service is started with, as the registry has them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "client/tool/report/settings.h"
#include "util/stored_value.h"

namespace zarn::tool {

/// Those of the machine, and those of the update service alone, which win over them.
[[nodiscard]] Stored<Variables> machineVariables();
[[nodiscard]] Stored<Variables> serviceVariables();

/// The keys of both, below HKEY_LOCAL_MACHINE; that of the service only while it has variables
/// of its own, since other things are written there, too.
[[nodiscard]] std::vector<std::wstring> variableKeys();

/// Gives this process the product's and the proxies' variables of both, in place of this
/// user's. Not while other threads read the environment.
void adoptVariables();

/// The temp folder that the service is given, whether it is there or not: TMP or else TEMP
/// of its own environment or else the machine's. Empty when neither names one,
/// nothing when this user may not know.
[[nodiscard]] std::optional<std::string> serviceTempFolder();

}  // namespace zarn::tool
