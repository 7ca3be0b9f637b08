// The service's settings on this machine.
#pragma once

#include <vector>

#include "client/tool/report/settings.h"

namespace zarn::tool {

/// What the service's next start would find. Any user may ask; what only administrators
/// may read is said to be so.
[[nodiscard]] std::vector<Setting> serviceSettings();

}  // namespace zarn::tool
