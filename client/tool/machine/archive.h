// A folder or a zip file that is filled with files and appears at its place only
// when it is complete.
#pragma once

#include <memory>
#include <string>
#include <tl/expected.hpp>
#include <utility>

#include "os/error_text.h"
#include "os/files.h"

namespace zarn::tool {

/// Why something could not be done, a clause in UTF-8. The zip library has errors for
/// which the system has no code.
struct Problem {
  explicit Problem(SystemError error) : words(systemErrorPhrase(error)) {}
  explicit Problem(std::string text) : words(std::move(text)) {}

  std::string words;
};
template <typename T = void>
using Attempt = tl::expected<T, Problem>;

class Archive {
 public:
  Archive() = default;
  Archive(const Archive&) = delete;
  Archive& operator=(const Archive&) = delete;
  /// Without finish(), nothing is left of it.
  virtual ~Archive() = default;

  // Names are UTF-8 and relative, with '/' between folders. A failure means that this
  // one is not in the archive, which goes on.

  /// The file's bytes from its beginning to its present end.
  [[nodiscard]] virtual Attempt<> addFile(const std::string& name, os::ScopedFile file) = 0;
  [[nodiscard]] virtual Attempt<> addText(const std::string& name, std::string text) = 0;

  /// Puts the archive at its place. Nothing is there when that fails.
  [[nodiscard]] virtual Attempt<> finish() = 0;
};
using NewArchive = Attempt<std::unique_ptr<Archive>>;

/// The path (UTF-8) must be free, or be an empty folder.
[[nodiscard]] NewArchive newFolder(const std::string& path);
/// The path (UTF-8) must be free.
[[nodiscard]] NewArchive newZip(const std::string& path);

}  // namespace zarn::tool
