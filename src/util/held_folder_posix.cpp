#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "util/file_stream_posix.h"
#include "util/held_folder.h"
#include "util/system_error.h"

namespace zarn::FileUtils {
namespace {

int descriptor(std::intptr_t handle) {
  return static_cast<int>(handle);
}

std::uint32_t lastErrorUnless(bool succeeded) {
  return succeeded ? 0 : failureCode(lastSystemError());
}

struct DirectoryCloser {
  void operator()(DIR* directory) const noexcept { ::closedir(directory); }
};

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

}  // namespace

const std::uint32_t HeldFolder::kInvalidName = EINVAL;
const std::uint32_t HeldFolder::kRefused = EACCES;

void HeldFolder::Traits::close(Handle handle) noexcept {
  ::close(descriptor(handle));
}

bool HeldFolder::isMissing(std::uint32_t error) noexcept {
  return error == ENOENT;
}

bool HeldFolder::isNotEmpty(std::uint32_t error) noexcept {
  return error == ENOTEMPTY || error == EEXIST;
}

HeldFolder HeldFolder::take(std::intptr_t handle) {
  if (handle == Traits::invalid()) return HeldFolder(failureCode(lastSystemError()));
  HeldFolder result;
  result.handle_.reset(handle);
  return result;
}

HeldFolder HeldFolder::holdPath(std::string_view path, Links links) {
  HeldFolder result =
      take(::open(std::string(path).c_str(), kFolderFlags | (links == Links::Refuse ? O_NOFOLLOW : 0)));
  result.path_ = path;
  return result;
}

HeldFolder HeldFolder::holdName(const Name& name, Existing existing) const {
  const int parent = descriptor(handle_.get());
  if (existing != Existing::Only && ::mkdirat(parent, name.c_str(), 0755) != 0 &&
      (existing == Existing::Never || errno != EEXIST)) {
    return HeldFolder(failureCode(lastSystemError()));
  }
  HeldFolder result = take(::openat(parent, name.c_str(), kFolderFlags | O_NOFOLLOW));
  result.path_ = join(path_, name);
  return result;
}

ScopedFile HeldFolder::openName(const Name& name, const char* mode, Existing existing,
                                std::uint32_t& error) const {
  int flags = openFlags(mode) | O_NOFOLLOW | O_NONBLOCK;  // a pipe in its place holds nobody up
  if (existing == Existing::Only) flags &= ~O_CREAT;
  if (existing == Existing::Never) flags |= O_EXCL;
  return toStream(::openat(descriptor(handle_.get()), name.c_str(), flags, 0644), mode, true, error);
}

std::uint32_t HeldFolder::findName(const Name& name) const {
  struct stat status {};
  return lastErrorUnless(::fstatat(descriptor(handle_.get()), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) ==
                         0);
}

std::uint32_t HeldFolder::renameName(const Name& from, const Name& to) const {
  const int folder = descriptor(handle_.get());
  return lastErrorUnless(::renameat(folder, from.c_str(), folder, to.c_str()) == 0);
}

std::uint32_t HeldFolder::removeName(const Name& name) const {
  const int folder = descriptor(handle_.get());
  if (::unlinkat(folder, name.c_str(), 0) == 0) return 0;
  if (errno != EISDIR && errno != EPERM) return failureCode(lastSystemError());
  return lastErrorUnless(::unlinkat(folder, name.c_str(), AT_REMOVEDIR) == 0);
}

std::uint32_t HeldFolder::listNames(const std::function<void(const FolderEntry&)>& visit) const {
  ScopedHandle<Traits> again(::openat(descriptor(handle_.get()), ".", kFolderFlags));
  const std::unique_ptr<DIR, DirectoryCloser> directory(again ? ::fdopendir(descriptor(again.get()))
                                                              : nullptr);
  if (!directory) return failureCode(lastSystemError());
  static_cast<void>(again.release());  // the directory owns it now
  for (errno = 0; const dirent* const entry = ::readdir(directory.get()); errno = 0) {
    const std::string_view name(entry->d_name);
    if (name != "." && name != "..") visit({entry->d_name, entry->d_type == DT_REG, entry->d_type == DT_DIR});
  }
  return static_cast<std::uint32_t>(errno);
}

}  // namespace zarn::FileUtils
