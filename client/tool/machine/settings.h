// The service's settings on this machine.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "client/tool/report/settings.h"

namespace zarn::tool {

/// What the service's next start would find. Any user may ask; what only administrators
/// may read is said to be so.
[[nodiscard]] std::vector<Setting> serviceSettings();

/// Whether policy or environment were written since the service's process, which may be 0 for
/// none, started; nothing when that cannot be told, as by who is no administrator.
[[nodiscard]] std::optional<bool> settingsChangedSinceStart(std::uint32_t processId);

}  // namespace zarn::tool
