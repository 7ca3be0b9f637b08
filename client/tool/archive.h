// A folder or a zip file that is filled with files and appears at its place only
// when it is complete.
#pragma once

#include <memory>
#include <string>

#include "util/file_utils.h"

namespace zarn::tool {

class Archive {
 public:
  Archive() = default;
  Archive(const Archive&) = delete;
  Archive& operator=(const Archive&) = delete;
  /// Without finish(), nothing is left of it.
  virtual ~Archive() = default;

  // Names are UTF-8 and relative, with '/' between folders. False means that this
  // one is not in the archive; problem() says why, and the archive goes on.

  /// The file's bytes from its beginning to its present end.
  [[nodiscard]] virtual bool addFile(const std::string& name, FileUtils::ScopedFile file) = 0;
  [[nodiscard]] virtual bool addText(const std::string& name, std::string text) = 0;

  /// Puts the archive at its place. False when that failed; nothing is there then.
  [[nodiscard]] virtual bool finish() = 0;

  /// The system's words for the last failure; UTF-8.
  [[nodiscard]] virtual std::string problem() const = 0;
};

struct NewArchive {
  /// Null when it could not be begun.
  std::unique_ptr<Archive> archive;
  std::string problem;
};

/// The path (UTF-8) must be free, or be an empty folder.
[[nodiscard]] NewArchive newFolder(const std::string& path);
/// The path (UTF-8) must be free.
[[nodiscard]] NewArchive newZip(const std::string& path);

}  // namespace zarn::tool
