// Reading the registry.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace zarn::tool {

/// A text value (REG_SZ, as the service reads them); nothing when it is missing or of
/// another kind.
[[nodiscard]] std::optional<std::string> registryText(HKEY root, const std::string& key,
                                                      const std::string& value);

/// A list of texts (REG_MULTI_SZ); empty when it is missing or of another kind.
[[nodiscard]] std::vector<std::wstring> registryTexts(HKEY root, const std::string& key,
                                                      const std::string& value);

/// The key's text values, expanded, as "NAME=TEXT".
[[nodiscard]] std::vector<std::wstring> registryAssignments(HKEY root, const std::string& key);

}  // namespace zarn::tool
