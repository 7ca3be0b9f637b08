// The platform's part of update_history.cpp.
#pragma once

#include <cstdio>

namespace zarn {

/// Makes an open file `bytes` long again; what its buffer holds is thrown away first.
void cutFile(std::FILE* file, long bytes) noexcept;

}  // namespace zarn
