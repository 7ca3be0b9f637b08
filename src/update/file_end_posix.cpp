#include <stdio_ext.h>
#include <unistd.h>

#include "update/file_end.h"

namespace zarn {

void cutFile(std::FILE* file, long bytes) noexcept {
  __fpurge(file);
  static_cast<void>(::ftruncate(::fileno(file), bytes) == 0);
}

}  // namespace zarn
