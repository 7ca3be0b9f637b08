// A folder that callers may have chosen, held by its handle: everything in it is
// opened, moved and removed relative to the handle, by name, and no link in a name's
// place is followed. What happens to the folder's own path meanwhile changes nothing.
//
// Failures are logged with the texts of file_utils.h. Every operation has a deadline
// (util/io_deadline.h). An object is for one thread at a time.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "os/folder.h"
#include "os/system_error.h"
#include "util/file_utils.h"

namespace zarn::FileUtils {

/// Whether a place of the service's own (util/path_judge.h) may be held: never where a
/// caller's path has led there, unless the override of the application data did.
enum class OwnPlaces : std::uint8_t { Refuse, Allow };

using os::Existing;
using os::FolderEntry;

class HeldFolder {
 public:
  /// Holds a folder on a disk, and nothing else that a name can lead to. With
  /// Links::Refuse a folder that is itself a link is not held. A folder that somebody
  /// keeps for himself is held all the same, but cannot be listed. Logs nothing.
  [[nodiscard]] static Result<HeldFolder> hold(std::string_view path, Links links, OwnPlaces ownPlaces);

  /// The name it really had when it was taken, every link on the way followed.
  [[nodiscard]] const std::string& path() const noexcept { return folder_.path(); }
  /// The full path of a name in it, for messages.
  [[nodiscard]] std::string pathOf(std::string_view name) const { return join(path(), name); }

  // A name is one component. Operations on other names fail.

  /// A folder in this one, never through a link; made when it is missing and `existing`
  /// says so. Logs nothing.
  [[nodiscard]] Result<HeldFolder> folder(std::string_view name, Existing existing = Existing::Only) const;

  /// A C stream on a file, with the modes of safeOpen; others may read, write, rename
  /// and delete it meanwhile. Nothing is truncated, and nothing opened, unless it is a
  /// plain file with this one name. A failure is logged.
  [[nodiscard]] Result<ScopedFile> open(std::string_view name, const char* mode,
                                        Existing existing = Existing::OpenOrCreate) const;

  /// Begins a file where nothing stands, to be completed with os::keepFile(). That something does, or that
  /// the folder lets nobody make files, is not logged.
  [[nodiscard]] Result<ScopedFile> create(std::string_view name) const;

  /// Fails when there is nothing of this name, and when that cannot be told. Logs nothing.
  [[nodiscard]] Result<void> find(std::string_view name) const;
  [[nodiscard]] bool exists(std::string_view name) const;
  /// Moves within the folder; a file of the new name is replaced. Logs a failure.
  bool rename(std::string_view from, std::string_view to) const;
  /// Removes a file, an empty folder or a link, not what it leads to. What is not there
  /// counts as removed. Logs a failure.
  bool remove(std::string_view name) const;
  /// The same with nothing logged.
  [[nodiscard]] Result<void> tryRemove(std::string_view name) const;
  /// Removes also a folder with all that is in it. Logs nothing.
  [[nodiscard]] Result<void> removeTree(std::string_view name) const;
  /// Calls `visit` for everything in the folder.
  [[nodiscard]] Result<void> list(const std::function<void(const FolderEntry&)>& visit) const;

 private:
  explicit HeldFolder(os::Folder folder) : folder_(std::move(folder)) {}

  os::Folder folder_;
};

/// Removes what stands at a path in a folder of our own: a file, a link (not what it
/// leads to) or a folder with everything in it. What is not there counts as removed.
bool removeWhatever(std::string_view path, bool quiet = false);

}  // namespace zarn::FileUtils
