// What a program says of itself in its version resource. Windows only.
#pragma once

#include <string>

namespace zarn {

/// UTF-8; a text that the resource lacks is empty. Its author chose them.
struct FileVersion {
  std::string product;
  std::string productVersion;
};

/// Of the file at `path` (UTF-8); all empty when it has no version resource or
/// cannot be read.
[[nodiscard]] FileVersion readFileVersion(const std::string& path);

}  // namespace zarn
