// What the service reported to the system's event log.
#pragma once

#include <string>

#include "client/tool/machine/archive.h"

namespace zarn::tool {

/// The service's events in the log "Application", the newest first, as an XML document in
/// UTF-8: 500 events and 4 MiB at most, found in 10 s or not at all. Secrets are not masked.
[[nodiscard]] Attempt<std::string> newestEvents();

}  // namespace zarn::tool
