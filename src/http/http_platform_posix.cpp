#include <cstdlib>

#include "http/http_platform.h"

namespace zarn::platform {

void removeEnvironmentVariable(const char* name) noexcept {
  ::unsetenv(name);
}

std::int64_t seekToEnd(std::FILE* file) noexcept {
  return ::fseeko(file, 0, SEEK_END) == 0 ? ::ftello(file) : -1;
}

}  // namespace zarn::platform
