#include <cstdlib>

#include "http/http_platform.h"

namespace zarn::platform {

// An empty value removes the variable, from the process's environment block too,
// which is where libcurl looks.
void removeEnvironmentVariable(const char* name) noexcept {
  ::_putenv_s(name, "");
}

std::int64_t seekToEnd(std::FILE* file) noexcept {
  return ::_fseeki64(file, 0, SEEK_END) == 0 ? ::_ftelli64(file) : -1;
}

}  // namespace zarn::platform
