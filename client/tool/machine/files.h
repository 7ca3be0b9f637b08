// Looking at files and folders that the service wrote or that the user named. Paths are
// UTF-8 unless they are wide.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/tool/report/answer.h"
#include "client/tool/report/newest_requests.h"
#include "os/files.h"
#include "os/system_error.h"
#include "util/held_folder.h"

namespace zarn::tool {

struct FileEnd {
  std::string bytes;
  /// The file is longer, and its beginning is missing.
  bool isCut = false;
};

/// The last `maximumBytes` of a file that others may be writing to. Links in its place are
/// not followed: whoever may write to the folder could point them anywhere.
[[nodiscard]] Result<FileEnd> readEnd(const std::string& folder, const std::string& name,
                                      std::int64_t maximumBytes);
[[nodiscard]] Result<FileEnd> readEnd(const FileUtils::HeldFolder& folder, const std::string& name,
                                      std::int64_t maximumBytes);

/// The first `maximumBytes` of such a file, in the same way.
[[nodiscard]] Result<std::string> readHead(const std::string& folder, const std::string& name,
                                           std::int64_t maximumBytes);

/// The lines of an open file, from its end, of which no more than `maximumBytes` are read.
[[nodiscard]] LinesFromEnd linesFromEnd(os::ScopedFile file, std::int64_t maximumBytes);
/// Those of a file's end that was read.
[[nodiscard]] LinesFromEnd linesFromEnd(FileEnd end);

/// Names of the plain files in a folder, sorted.
[[nodiscard]] Result<std::vector<std::string>> filesIn(const FileUtils::HeldFolder& folder);

/// Whether a folder is there; true also when this user may not look.
[[nodiscard]] bool mayBeFolder(const std::string& path);

[[nodiscard]] bool isEmptyFolder(const std::string& path);

/// The path as seen from the current directory, since the service has another
/// one, with the long-path prefix where it needs it; empty when it cannot be a path.
[[nodiscard]] std::wstring absolutePath(const std::string& path);

/// What a command answers when nothing is at the path, or a folder, and the caller can
/// see that; nothing when the service may judge it.
[[nodiscard]] std::optional<Answer> missingFile(const std::wstring& path);

/// The same when there is no folder.
[[nodiscard]] std::optional<Answer> missingFolder(const std::wstring& path);

}  // namespace zarn::tool
