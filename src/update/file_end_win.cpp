#include <io.h>

#include "update/file_end.h"

namespace zarn {

void cutFile(std::FILE* file, long bytes) noexcept {
  // A failed flush has already thrown away what it could not write.
  static_cast<void>(_chsize_s(_fileno(file), bytes));
}

}  // namespace zarn
