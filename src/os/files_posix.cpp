#include "os/files_posix.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

namespace zarn::os {

const char kSeparator = '/';
const bool kPathsNameDrives = false;

bool isSeparator(char c) noexcept {
  return c == '/';
}

Result<boost::filesystem::path> pathFromUtf8(std::string_view text) {
  return boost::filesystem::path(std::string(text));
}

Result<std::string> utf8FromPath(const boost::filesystem::path& path) {
  return path.native();
}

bool isOnNetworkDrive(const std::string& /*path*/) {
  return false;
}

Result<std::string> realPath(const std::string& path) {
  return path;
}

Result<std::string> userDataFolder() {
  if (const char* const data = std::getenv("XDG_DATA_HOME")) return std::string(data);
  const char* const home = std::getenv("HOME");
  if (home == nullptr) return failure(ENOENT);
  return std::string(home) + "/.local/share";
}

// The native build keeps no record of a machine.
Result<std::string> machineDataFolder() {
  return failure(ENOENT);
}

int openFlags(std::string_view mode) {
  int flags = O_RDONLY;
  for (const char c : mode) {
    if (c == 'r') flags = O_RDONLY;
    if (c == 'w') flags = O_WRONLY | O_CREAT;
    if (c == 'a') flags = O_WRONLY | O_CREAT | O_APPEND;
    if (c == '+') flags = (flags & ~(O_RDONLY | O_WRONLY)) | O_RDWR;
  }
  return flags | O_CLOEXEC;
}

namespace {

bool isPlainFileWithOneName(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1;
}

}  // namespace

OpenResult toStream(int descriptor, const char* mode, bool onlyPlain) {
  const bool truncates = std::string_view(mode).find('w') != std::string_view::npos;
  const bool usable = descriptor != -1 && (!onlyPlain || isPlainFileWithOneName(descriptor)) &&
                      (!truncates || ::ftruncate(descriptor, 0) == 0);
  ScopedFile file(usable ? ::fdopen(descriptor, mode) : nullptr);
  if (file) return file;
  const std::uint32_t error = descriptor != -1 && !usable ? EACCES : lastSystemError();
  if (descriptor != -1) ::close(descriptor);
  return tl::unexpected<OpenFailure>({OpenFailure::Step::Open, failureCode(error)});
}

// Other processes' rights are not shared out here: every file may be renamed and deleted.
OpenResult openStream(const boost::filesystem::path& path, const char* mode, Sharing /*sharing*/,
                      Links links) {
  const bool refuse = links == Links::Refuse;
  return toStream(::open(path.c_str(), openFlags(mode) | (refuse ? O_NOFOLLOW : 0), 0644), mode, refuse);
}

Result<ScopedFile> openPlainFile(const boost::filesystem::path& path) {
  // A pipe in the file's place holds nobody up.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (descriptor == -1) return lastFailure();
  if (!isPlainFileWithOneName(descriptor)) {
    ::close(descriptor);
    return ScopedFile();
  }
  auto file = toStream(descriptor, "rb", false);
  if (!file) return failure(file.error().code);
  return std::move(*file);
}

bool writeThrough(std::FILE& file, std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t written = ::write(::fileno(&file), text.data(), text.size());
    if (written <= 0) return false;  // interrupted, too: that is how a deadline ends it
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool cutFile(std::FILE& file, std::int64_t bytes) noexcept {
  __fpurge(&file);
  return ::ftruncate(::fileno(&file), bytes) == 0;
}

bool emptyFile(std::FILE& file) noexcept {
  return cutFile(file, 0) && ::lseek(::fileno(&file), 0, SEEK_SET) == 0;
}

Result<void> keepFile(std::FILE& /*file*/) noexcept {
  return {};
}

std::int64_t seekToEnd(std::FILE& file) noexcept {
  return ::fseeko(&file, 0, SEEK_END) == 0 ? ::ftello(&file) : -1;
}

void copyFileTime(std::FILE& from, std::FILE& to) noexcept {
  struct stat facts {};
  if (::fstat(::fileno(&from), &facts) != 0) return;
  const struct timespec times[] = {facts.st_atim, facts.st_mtim};
  static_cast<void>(::futimens(::fileno(&to), times));
}

}  // namespace zarn::os
