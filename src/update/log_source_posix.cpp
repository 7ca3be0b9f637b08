#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "update/log_source.h"
#include "util/scoped_handle.h"

namespace zarn {
namespace {

struct DescriptorTraits {
  using Handle = int;
  static Handle invalid() noexcept { return -1; }
  static void close(Handle handle) noexcept { ::close(handle); }
};
using Descriptor = ScopedHandle<DescriptorTraits>;

}  // namespace

std::shared_ptr<void> holdLogSource(const boost::filesystem::path& path, boost::system::error_code& error) {
  error.clear();
  auto file =
      std::make_shared<Descriptor>(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat facts {};
  if (!*file || ::fstat(file->get(), &facts) != 0) {
    error.assign(errno, boost::system::system_category());
    return nullptr;
  }
  if (!S_ISREG(facts.st_mode) || facts.st_nlink != 1) return nullptr;
  return file;
}

}  // namespace zarn
