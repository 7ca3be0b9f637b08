// The two files in which the service keeps its update history.
#pragma once

#include <cstdint>
#include <string>

#include "client/tool/history.h"

namespace zarn::tool {

struct StoredHistory {
  /// Of the earlier file first.
  History history;
  /// A file is longer than what was read of it, and its oldest records are missing.
  bool cut = false;
  /// 0, or the Win32 error for which a file could not be read. A missing earlier
  /// file is none, and a missing current one only when both are.
  std::uint32_t error = 0;
};

/// The last `maximumBytes` of each file in the folder.
[[nodiscard]] StoredHistory readHistory(const std::string& folder, std::int64_t maximumBytes);

}  // namespace zarn::tool
