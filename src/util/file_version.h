// What a program says of itself in its version resource. Windows only.
#pragma once

#include <optional>
#include <string>

#include "util/product_version.h"

namespace zarn {

/// UTF-8; a text that the resource lacks is empty. Its author chose them.
struct FileVersion {
  std::string product;
  std::string productVersion;
  /// The product version that programs compare; the text above may say anything else.
  std::optional<ProductVersion> number;
};

/// Of the file at `path` (UTF-8); all empty when it has no version resource, has one
/// of more than a megabyte or cannot be read.
[[nodiscard]] FileVersion readFileVersion(const std::string& path);

}  // namespace zarn
