// Whether the configuration in force is of use to the service: the checks of `doctor`.
// Nothing here uses the network. Texts are UTF-8.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/tool/report/findings.h"

namespace zarn::tool {

/// Every check. Adopts the service's environment.
[[nodiscard]] std::vector<Finding> checkConfiguration();

// Each check on what it is given.

/// `variable` is what `text` is the value of; empty for no proxy. A password is not shown.
[[nodiscard]] Finding checkProxy(const std::string& variable, const std::string& text);

/// The variables of central collection; one that is set and empty is a mistake.
[[nodiscard]] Finding checkCollector(const std::optional<std::string>& collector,
                                     const std::optional<std::string>& minutes);

/// The list in `resources`: the chosen one when it is there or, by `isChosen`, has to be.
[[nodiscard]] Finding checkAuthorities(const std::string& resources, bool isChosen);

/// The folder of the service's private copies; empty when nothing names one.
[[nodiscard]] Finding checkTempFolder(const std::string& folder);

}  // namespace zarn::tool
