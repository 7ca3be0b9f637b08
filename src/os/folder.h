// A folder by its handle: what is done in it is done relative to the handle, by name,
// and no link in a name's place is followed. No deadlines and no log lines: those come
// with util/held_folder.h, which everybody uses instead.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <functional>
#include <string>

#include "os/files.h"
#include "os/handles.h"
#include "os/system_error.h"

namespace zarn::os {

/// What to do about something that is not there, or that is.
enum class Existing : std::uint8_t { OpenOrCreate, Only, Never };

struct FolderEntry {
  boost::filesystem::path name;
  /// A plain file: neither a folder nor a link.
  bool isFile = false;
  bool isFolder = false;
};

class Folder {
 public:
  /// In the system's encoding; one component, which the caller has seen to.
  using Name = boost::filesystem::path::string_type;

  /// A folder on a disk, and nothing else that a name can lead to. With Links::Refuse a
  /// folder that is itself a link is not opened. A folder that somebody keeps for
  /// himself is opened all the same, but cannot be listed.
  [[nodiscard]] static Result<Folder> open(const boost::filesystem::path& path, Links links);

  /// The name it really had when it was opened, UTF-8, every link on the way followed
  /// (natively: the name it was opened by).
  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  /// A folder in this one, never through a link; made when `existing` says so.
  [[nodiscard]] Result<Folder> folder(const Name& name, Existing existing) const;

  /// A C stream; nothing is truncated unless it is a plain file with this one name. With
  /// Existing::Never the file lasts only when keepFile() says so (os/files.h).
  [[nodiscard]] OpenResult file(const Name& name, const char* mode, Existing existing) const;

  /// Whether there is something of this name.
  [[nodiscard]] Result<void> find(const Name& name) const;
  /// A file of the new name is replaced.
  [[nodiscard]] Result<void> rename(const Name& from, const Name& to) const;
  /// A file, an empty folder or a link, not what it leads to.
  [[nodiscard]] Result<void> remove(const Name& name) const;
  [[nodiscard]] Result<void> list(const std::function<void(const FolderEntry&)>& visit) const;

 private:
  /// The system's handle as a number: this header is for every platform.
  struct Traits {
    using Handle = std::intptr_t;
    static Handle invalid() noexcept { return -1; }
    static void close(Handle handle) noexcept;
  };

  Folder(std::intptr_t handle, std::string path) : handle_(handle), path_(std::move(path)) {}
  /// What the last call opened, or why it did not.
  static Result<Folder> take(std::intptr_t handle, std::string path);

  ScopedHandle<Traits> handle_;
  std::string path_;
};

}  // namespace zarn::os
