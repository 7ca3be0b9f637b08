// The folder of our own in which the records of install requests lie that count: what
// callers may not write to, forge or have moved elsewhere.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "update/update_history.h"
#include "util/held_folder.h"
#include "util/mutex.h"

namespace zarn {

/// "Zarn Update Service" in the machine's common application data; empty when the
/// system does not say where that is.
[[nodiscard]] std::string recordFolderPath();

/// The code for a folder that stands at the place of ours and is not (ERROR_INVALID_OWNER).
inline constexpr std::uint32_t kFolderNotTrusted = 1307;

/// 0 when what lies in the folder can be trusted: it is a real folder, no link, whose
/// owner is the system, its administrators, its installer of modules or this process's
/// own user, and nobody else may write to it. Else kFolderNotTrusted, or the system's
/// error, such as that there is none. Follows no link and logs nothing.
[[nodiscard]] std::uint32_t recordFolderProblem(std::string_view path);

/// The same of a security descriptor alone.
[[nodiscard]] bool isTrustedDescriptor(void* descriptor);

/// Any thread may use it.
class RecordFolder {
 public:
  explicit RecordFolder(std::string path) : path_(std::move(path)) {}

  /// Makes the folder when it is missing, readable for users, writable for the system
  /// and administrators, and holds it as long as this object lives. Any user may have
  /// put something in its place before: what is not to be trusted is renamed to
  /// "... untrusted <time>" first. False when there is no folder to be had; one line
  /// at level Error says so until it has been had again.
  bool prepare();

  /// Appends to "Update History.jsonl" when an installer ran, to "Refused
  /// Requests.jsonl" when none did: many refusals push out no installation. When the
  /// first cannot be written to, the record has a file of its own with its time in the
  /// name, "Update History.2026-11-21T10.15.00.007Z.jsonl". Prepares the folder first
  /// when that is still due. False, and logged, on failure.
  bool append(const InstallRecord& record);

 private:
  bool hold() ZARN_REQUIRES(mutex_);

  const std::string path_;
  Mutex mutex_;
  std::optional<FileUtils::HeldFolder> held_ ZARN_GUARDED_BY(mutex_);
  bool hasComplained_ ZARN_GUARDED_BY(mutex_) = false;
};

}  // namespace zarn
