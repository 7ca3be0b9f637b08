// What a line on a terminal says while an update is being installed.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace zarn::tool {

// In whole seconds, so that the line changes once a second; short enough for a terminal of
// 80 columns. After ten seconds, when people begin to wonder, they say that Ctrl+C is safe.

/// `serviceState` tells a long installation from a service that has gone.
[[nodiscard]] std::string installingText(std::chrono::milliseconds elapsed, std::string_view serviceState);

[[nodiscard]] std::string waitingText(std::chrono::milliseconds elapsed);

}  // namespace zarn::tool
