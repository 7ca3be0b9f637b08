// Reading what the service wrote.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "util/held_folder.h"

namespace zarn::tool {

struct FileEnd {
  std::string bytes;
  /// The file is longer, and its beginning is missing.
  bool cut = false;
  /// 0, or the Win32 error for which nothing could be read.
  std::uint32_t error = 0;
};

/// The last `maximumBytes` of a file that others may be writing to. Links in its place are
/// not followed: whoever may write to the folder could point them anywhere.
[[nodiscard]] FileEnd readEnd(const std::string& folder, const std::string& name, std::int64_t maximumBytes);

/// Names of the plain files in a folder, sorted; `error` as above.
struct FolderFiles {
  std::vector<std::string> names;
  std::uint32_t error = 0;
};
[[nodiscard]] FolderFiles filesIn(const FileUtils::HeldFolder& folder);

/// Whether a folder is there; true also when this user may not look.
[[nodiscard]] bool mayBeFolder(const std::string& path);

[[nodiscard]] bool isEmptyFolder(const std::string& path);

[[nodiscard]] bool isMissing(std::uint32_t error) noexcept;

}  // namespace zarn::tool
