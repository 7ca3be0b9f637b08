#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

#include "util/file_stream_posix.h"
#include "util/file_utils.h"
#include "util/file_utils_platform.h"
#include "util/logging.h"
#include "util/printable.h"

namespace zarn::FileUtils {

boost::filesystem::path toPath(std::string_view path) {
  return {std::string(path)};
}

std::string toUtf8(const boost::filesystem::path& path) {
  return path.native();
}

namespace platform {

const char kSeparator = '/';

bool isSeparator(char c) noexcept {
  return c == '/';
}

std::string userApplicationDataFolder() {
  if (const char* const data = std::getenv("XDG_DATA_HOME")) return data;
  const char* const home = std::getenv("HOME");
  if (home == nullptr) logFatal("SHGetSpecialFolderPath(CSIDL_LOCAL_APPDATA) failed: %d", ENOENT);
  return join(home, ".local/share");
}

std::string executablePath() {
  char path[4096];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof(path));
  if (length < 0) logFatal("GetModuleFileNameW failed: %d", lastSystemError());
  return {path, static_cast<std::size_t>(length)};
}

}  // namespace platform

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

ScopedFile toStream(int descriptor, const char* mode, bool onlyPlain, std::uint32_t& error) {
  const bool truncates = std::string_view(mode).find('w') != std::string_view::npos;
  const bool usable = descriptor != -1 && (!onlyPlain || isPlainFileWithOneName(descriptor)) &&
                      (!truncates || ::ftruncate(descriptor, 0) == 0);
  ScopedFile file(usable ? ::fdopen(descriptor, mode) : nullptr);
  if (!file) {
    error = descriptor != -1 && !usable ? EACCES : lastSystemError();
    if (descriptor != -1) ::close(descriptor);
  }
  return file;
}

ScopedFile safeOpen(std::string_view path, const char* mode, bool /*shareDelete*/, Links links) {
  if (*mode == '\0') mode = "r";
  const bool refuse = links == Links::Refuse;
  std::uint32_t error = 0;
  ScopedFile file =
      toStream(::open(std::string(path).c_str(), openFlags(mode) | (refuse ? O_NOFOLLOW : 0), 0644), mode,
               refuse, error);
  if (!file) logLine(LogLevel::Error, "safe_fopen: CreateFileW for '%s' failed: %d", printable(path), error);
  return file;
}

}  // namespace zarn::FileUtils
