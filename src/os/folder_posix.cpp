#include "os/folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <utility>

#include "os/files_posix.h"

namespace zarn::os {
namespace {

int descriptor(std::intptr_t handle) {
  return static_cast<int>(handle);
}

struct DirectoryCloser {
  void operator()(DIR* directory) const noexcept { ::closedir(directory); }
};

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

}  // namespace

void Folder::Traits::close(Handle handle) noexcept {
  ::close(descriptor(handle));
}

Result<Folder> Folder::take(std::intptr_t handle, std::string path) {
  if (handle == Traits::invalid()) return lastFailure();
  return Folder(handle, std::move(path));
}

Result<Folder> Folder::open(const boost::filesystem::path& path, Links links) {
  return take(::open(path.c_str(), kFolderFlags | (links == Links::Refuse ? O_NOFOLLOW : 0)), path.native());
}

Result<Folder> Folder::folder(const Name& name, Existing existing) const {
  const int parent = descriptor(handle_.get());
  // A folder that is there is an error of mkdir alone.
  if (existing != Existing::Only && ::mkdirat(parent, name.c_str(), 0755) != 0 &&
      (existing == Existing::Never || errno != EEXIST)) {
    return lastFailure();
  }
  return take(::openat(parent, name.c_str(), kFolderFlags | O_NOFOLLOW), path_ + '/' + name);
}

OpenResult Folder::file(const Name& name, const char* mode, Existing existing) const {
  int flags = openFlags(mode) | O_NOFOLLOW | O_NONBLOCK;  // a pipe in its place holds nobody up
  if (existing == Existing::Only) flags &= ~O_CREAT;
  if (existing == Existing::Never) flags |= O_EXCL;
  const int folder = descriptor(handle_.get());
  const int opened = ::openat(folder, name.c_str(), flags, 0644);
  auto file = toStream(opened, mode, true);
  // What was begun and cannot be used would keep the next one from being begun.
  if (!file && opened != -1 && existing == Existing::Never) ::unlinkat(folder, name.c_str(), 0);
  return file;
}

Result<void> Folder::find(const Name& name) const {
  struct stat status {};
  return resultOf(::fstatat(descriptor(handle_.get()), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0);
}

Result<void> Folder::rename(const Name& from, const Name& to) const {
  const int folder = descriptor(handle_.get());
  return resultOf(::renameat(folder, from.c_str(), folder, to.c_str()) == 0);
}

// Systems differ in the error that says "this is a folder".
Result<void> Folder::remove(const Name& name) const {
  const int folder = descriptor(handle_.get());
  if (::unlinkat(folder, name.c_str(), 0) == 0) return {};
  if (errno != EISDIR && errno != EPERM) return lastFailure();
  return resultOf(::unlinkat(folder, name.c_str(), AT_REMOVEDIR) == 0);
}

Result<void> Folder::list(const std::function<void(const FolderEntry&)>& visit) const {
  // Opened again, since reading moves a position that all who share a descriptor see.
  ScopedHandle<Traits> again(::openat(descriptor(handle_.get()), ".", kFolderFlags));
  const std::unique_ptr<DIR, DirectoryCloser> directory(again ? ::fdopendir(descriptor(again.get()))
                                                              : nullptr);
  if (!directory) return lastFailure();
  static_cast<void>(again.release());  // the directory owns it now
  for (errno = 0; const dirent* const entry = ::readdir(directory.get()); errno = 0) {
    const std::string_view name(entry->d_name);
    if (name != "." && name != "..") visit({entry->d_name, entry->d_type == DT_REG, entry->d_type == DT_DIR});
  }
  return resultOf(errno == 0);
}

}  // namespace zarn::os
