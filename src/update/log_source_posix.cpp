#include "update/log_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "util/io_deadline.h"

namespace zarn {

FileUtils::ScopedFile openLogSource(const boost::filesystem::path& path, boost::system::error_code& error) {
  error.clear();
  const IoDeadline deadline(kOpenLimit);
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  struct stat facts {};
  const bool isKnown = descriptor != -1 && ::fstat(descriptor, &facts) == 0;
  if (!isKnown) error.assign(errno, boost::system::system_category());
  const bool isGood = isKnown && S_ISREG(facts.st_mode) && facts.st_nlink == 1;
  FileUtils::ScopedFile file(isGood ? ::fdopen(descriptor, "rb") : nullptr);
  if (isGood && !file) error.assign(errno, boost::system::system_category());
  if (!file && descriptor != -1) ::close(descriptor);
  return file;
}

void keepTime(std::FILE* from, std::FILE* to) noexcept {
  struct stat facts {};
  if (::fstat(::fileno(from), &facts) != 0) return;
  const struct timespec times[] = {facts.st_atim, facts.st_mtim};
  static_cast<void>(::futimens(::fileno(to), times));
}

}  // namespace zarn
