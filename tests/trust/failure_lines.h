// The two lines that a failed system call leaves in the log.
#pragma once

#include <string>
#include <vector>

#include "support/recording_log.h"

namespace zarn::testing {

inline std::vector<LoggedLine> failureLines(LogLevel level, const std::string& message,
                                            std::uint32_t lastError) {
  const auto shown = std::to_string(static_cast<std::int32_t>(lastError));
  return {{level, message}, {level, "    Win32 Error: " + shown + " " + systemErrorText(lastError)}};
}

inline std::vector<LoggedLine> join(std::vector<LoggedLine> first, const std::vector<LoggedLine>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

}  // namespace zarn::testing
