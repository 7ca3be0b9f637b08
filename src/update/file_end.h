// The platform's part of update_history.cpp.
#pragma once

#include <cstdio>

namespace zarn {

/// Makes an open file `bytes` long again; what it was kept of in memory is forgotten first.
void cutFile(std::FILE* file, long bytes) noexcept;

}  // namespace zarn
