// The system's event log. Windows only.
#pragma once

#include "log/event_reporter.h"

namespace zarn {

/// Writes to the log "Application", source names::kEventSource. Whether the source is
/// registered, which the package does, decides only whether viewers find the messages. Made on
/// first use, never destroyed: threads may report until the process has ended.
[[nodiscard]] EventReporter& systemEventReporter();

}  // namespace zarn
