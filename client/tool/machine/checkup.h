// Whether the configuration in force is of use to the service: the checks of `doctor`, with
// and without --offline, since none uses the network yet. Texts are UTF-8.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/tool/report/findings.h"
#include "client/tool/report/settings.h"

namespace zarn::tool {

/// Every check. Adopts the service's environment.
[[nodiscard]] std::vector<Finding> checkConfiguration();

// Each check on what it is given.

// `place` is what has to be set to have another value (see placeOf). A password is not shown.
[[nodiscard]] Finding checkAccountService(const std::string& host, const std::string& place);
[[nodiscard]] Finding checkProxy(const std::string& place, const std::string& text);

/// The variables of central collection; one that is set and empty is a mistake.
[[nodiscard]] Finding checkCollector(const std::optional<std::string>& collector,
                                     const std::optional<std::string>& minutes,
                                     const std::vector<Setting>& settings);

/// The list in `resources`: the chosen one when it is there or, by `isChosen`, has to be.
[[nodiscard]] Finding checkAuthorities(const std::string& resources, bool isChosen);

/// The folder of the service's private copies; empty when nothing names one.
[[nodiscard]] Finding checkTempFolder(const std::string& folder);

}  // namespace zarn::tool
