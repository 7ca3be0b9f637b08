// Where the records of install requests lie, and how they are appended. The ones that
// count lie in a folder of our own, which callers may not write to, forge or have moved
// elsewhere; a copy of those that came to a check lies beside the log, where callers look.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "os/system_error.h"
#include "update/install_record.h"
#include "update/record_place.h"
#include "util/held_folder.h"
#include "util/mutex.h"
#include "util/product_names.h"

namespace zarn {

// ---- Files of records ----------------------------------------------------------

/// A file begins anew when it has reached this size, and replaces the one before.
inline constexpr std::uint64_t kMaximumHistoryBytes = 8U << 20;

/// A file of records and what it is called when the next one has begun.
struct RecordFileNames {
  std::string_view current;
  std::string_view earlier;
};
/// Of the requests that ended with an installer's exit code.
inline constexpr RecordFileNames kHistoryNames{names::kHistory.narrow, names::kEarlierHistory.narrow};
/// Of the others, so that many refusals push out no installation.
inline constexpr RecordFileNames kRefusedNames{names::kRefused.narrow, names::kEarlierRefused.narrow};

/// Appends the line whole or not at all; a torn last line, left by a power cut, is
/// closed first. Refuses links and files with a second name, and files of twice the
/// maximum, which grow when somebody keeps them from being renamed. One call at a
/// time. False on failure, which it leaves to others to log.
[[nodiscard]] bool appendLine(const FileUtils::HeldFolder& folder, const RecordFileNames& file,
                              std::string_view line, std::uint64_t maximumBytes = kMaximumHistoryBytes);

/// Appends to "Update History.jsonl" in `directory`, which must exist and which callers
/// may have chosen. From any thread. False, and logged, on failure.
bool appendToHistory(std::string_view directory, std::string_view line);

// ---- The folder (on Windows alone) -----------------------------------------------

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

  /// Appends to the history when an installer ran, to the refused requests when none
  /// did. When the first cannot be written to, the record has a file of its own with its
  /// time in the name, "Update History.2026-11-21T10.15.00.007Z.jsonl". Prepares the
  /// folder first when that is still due. False, and logged, on failure.
  bool append(const InstallRecord& record);

  /// Puts "Installing.json" there (see installingText), which every user may read and
  /// which is gone when what is answered is let go, or when this process ends, however
  /// that happens. What stands in its place is removed. Null, and nothing logged, when
  /// the folder is not held yet or the file cannot be had.
  [[nodiscard]] std::shared_ptr<void> announce(const InstallRecord& record);

 private:
  bool hold() ZARN_REQUIRES(mutex_);

  const std::string path_;
  Mutex mutex_;
  /// Of its own, since an append may wait for whoever has locked a file. Taken after mutex_.
  Mutex announcing_;
  std::optional<FileUtils::HeldFolder> announced_ ZARN_GUARDED_BY(announcing_);
  std::optional<FileUtils::HeldFolder> held_ ZARN_GUARDED_BY(mutex_);
  bool hasComplained_ ZARN_GUARDED_BY(mutex_) = false;
};

/// Says that a record could not be kept, which no answer suffers from.
void logUnwrittenRecord();

}  // namespace zarn
