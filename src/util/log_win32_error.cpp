#include "util/log_win32_error.h"

#include "os/error_text.h"
#include "util/exceptions.h"

namespace zarn::detail {

void logSystemError(LogLevel level, std::uint32_t code) noexcept {
  // Asking the system for its words costs more than the line that nobody would see.
  const LogSink* const sink = logSink();
  if (sink == nullptr || !sink->isEnabled(level)) return;
  // Without memory for the system's text the caller still gets its code.
  quietly([&] {
    // The code is shown as a signed number, as system codes above 0x7fffffff usually are.
    logLine(level, "    %s",
            formatPrintf("Win32 Error: %d %s", static_cast<std::int32_t>(code), systemErrorText(code)));
  });
}

}  // namespace zarn::detail
