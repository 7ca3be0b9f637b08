// The process environment.
#pragma once

#include <optional>
#include <string>

namespace zarn {

/// The variable's text in UTF-8; nothing when it is not set. May be called from any thread.
[[nodiscard]] std::optional<std::string> environmentVariable(const char* name);

}  // namespace zarn
