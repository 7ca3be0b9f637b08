// The service's own environment: the value "Environment" of its registry key, a
// list of NAME=value that the service control manager adds to the machine's.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zarn::setup {

using Environment = std::vector<std::wstring>;

/// Empty when there is none. Throws SetupError.
[[nodiscard]] Environment readServiceEnvironment();

/// Throws SetupError.
void writeServiceEnvironment(const Environment& environment);

/// Replaces the variable, whatever the case of its name, or adds it. An empty
/// value removes it. Other variables stay: an administrator may have set them.
void setVariable(Environment& environment, std::wstring_view name, std::wstring_view value);

/// Empty when the variable is not there.
[[nodiscard]] std::wstring variable(const Environment& environment, std::wstring_view name);

}  // namespace zarn::setup
