// Follows the media server to its application-data directory.
#pragma once

#include <string_view>

namespace zarn {

/// Stores the media server's local application-data directory (UTF-16) as the
/// preference LocalAppDataPath and moves the service's log there at once: the
/// next line is the last in the old file. Failures are logged only.
void setLocalAppDataPath(std::wstring_view path);

}  // namespace zarn
