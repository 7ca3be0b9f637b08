// Deleting what the service logged. Paths are UTF-8.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "os/system_error.h"

namespace zarn::tool {

struct Purged {
  std::vector<std::string> files;
  /// Files, and folders that could not be looked into, in their order.
  std::vector<std::pair<std::string, SystemError>> left;
};

/// Deletes the service's logs below each folder of application data, and the files of the
/// record folder, unless others may write to that; then the folders that are empty. Other
/// files stay, and no link is followed.
[[nodiscard]] Purged purgeLogs(const std::vector<std::string>& applicationData,
                               const std::string& recordFolder);

}  // namespace zarn::tool
