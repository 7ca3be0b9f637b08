// A folder that callers may have chosen, held by its handle: everything in it is
// opened, moved and removed relative to the handle, by name, and no link in a name's
// place is followed. What happens to the folder's own path meanwhile changes nothing.
//
// Failures are logged with the texts of file_utils.h. Every operation has a deadline
// (util/io_deadline.h). An object is for one thread at a time.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "util/file_utils.h"
#include "util/scoped_handle.h"

namespace zarn::FileUtils {

/// Whether a place of the service's own (util/path_judge.h) may be held: never where a
/// caller's path has led there, unless the override of the application data did.
enum class OwnPlaces : std::uint8_t { Refuse, Allow };

/// What to do about a file that is not there, or that is.
enum class Existing : std::uint8_t { OpenOrCreate, Only, Never };

struct FolderEntry {
  boost::filesystem::path name;
  /// A plain file: neither a folder nor a link.
  bool isFile = false;
  bool isFolder = false;
};

class HeldFolder {
 public:
  /// Holds nothing, because of `error`.
  explicit HeldFolder(std::uint32_t error = 0) noexcept : error_(error) {}

  /// Holds a folder on a disk, and nothing else that a name can lead to. With
  /// Links::Refuse a folder that is itself a link is not held. A folder that somebody
  /// keeps for himself is held all the same, but cannot be listed. Logs nothing.
  [[nodiscard]] static HeldFolder hold(std::string_view path, Links links, OwnPlaces ownPlaces);

  [[nodiscard]] explicit operator bool() const noexcept { return handle_.isValid(); }
  /// The system's error for which it is not held.
  [[nodiscard]] std::uint32_t error() const noexcept { return error_; }
  /// Whether an error says that there is nothing of a name.
  [[nodiscard]] static bool isMissing(std::uint32_t error) noexcept;
  /// The name it really had when it was taken, every link on the way followed.
  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  /// The full path of a name in it, for messages.
  [[nodiscard]] std::string pathOf(std::string_view name) const { return join(path_, name); }

  // A name is one component. Operations on other names fail.

  /// A folder in this one, never through a link; made when it is missing and `existing`
  /// says so. Logs nothing.
  [[nodiscard]] HeldFolder folder(std::string_view name, Existing existing = Existing::Only) const;

  /// A C stream on a file, with the modes of safeOpen; others may read, write, rename
  /// and delete it meanwhile. Nothing is truncated, and nothing opened, unless it is a
  /// plain file with this one name. Null, logged and left as the last error on failure.
  [[nodiscard]] ScopedFile open(std::string_view name, const char* mode,
                                Existing existing = Existing::OpenOrCreate) const;

  /// Begins a file where nothing stands. Null, with `error` set and nothing logged, on failure.
  [[nodiscard]] ScopedFile create(std::string_view name, std::uint32_t& error) const;

  [[nodiscard]] bool exists(std::string_view name) const;

  /// Moves within the folder; a file of the new name is replaced.
  bool rename(std::string_view from, std::string_view to) const;

  /// Removes a file, an empty folder or a link, not what it leads to. What is not there
  /// counts as removed.
  bool remove(std::string_view name) const;
  /// The same with nothing logged: 0, or the system's error.
  [[nodiscard]] std::uint32_t tryRemove(std::string_view name) const;

  /// Removes also a folder with all that is in it. Logs nothing: 0, or the system's error.
  [[nodiscard]] std::uint32_t removeTree(std::string_view name) const;

  /// Calls `visit` for everything in the folder. 0, or the system's error.
  [[nodiscard]] std::uint32_t list(const std::function<void(const FolderEntry&)>& visit) const;

 private:
  /// The system's handle as a number: this header is for every platform.
  struct Traits {
    using Handle = std::intptr_t;
    static Handle invalid() noexcept { return -1; }
    static void close(Handle handle) noexcept;
  };
  using Name = boost::filesystem::path::string_type;

  // The platform's part: 0, or the system's error. No deadline, no log lines.
  static HeldFolder holdPath(std::string_view path, Links links);
  static HeldFolder take(std::intptr_t handle);
  [[nodiscard]] HeldFolder holdName(const Name& name, Existing existing) const;
  [[nodiscard]] ScopedFile openName(const Name& name, const char* mode, Existing existing,
                                    std::uint32_t& error) const;
  [[nodiscard]] std::uint32_t findName(const Name& name) const;
  [[nodiscard]] std::uint32_t renameName(const Name& from, const Name& to) const;
  [[nodiscard]] std::uint32_t removeName(const Name& name) const;
  [[nodiscard]] std::uint32_t listNames(const std::function<void(const FolderEntry&)>& visit) const;

  static bool isNotEmpty(std::uint32_t error) noexcept;
  static const std::uint32_t kInvalidName;
  static const std::uint32_t kRefused;

  [[nodiscard]] std::uint32_t removeTree(const Name& name, unsigned depth) const;

  ScopedHandle<Traits> handle_;
  std::string path_;
  std::uint32_t error_ = 0;
};

/// Removes what stands at a path in a folder of our own: a file, a link (not what it
/// leads to) or a folder with everything in it. What is not there counts as removed.
bool removeWhatever(std::string_view path, bool quiet = false);

}  // namespace zarn::FileUtils
