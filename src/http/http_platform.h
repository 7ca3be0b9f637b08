// What the HTTP client needs of the platform; not for other libraries.
#pragma once

#include <cstdint>
#include <cstdio>

namespace zarn::platform {

/// For this process, its C library included. Not while other threads read the environment.
void removeEnvironmentVariable(const char* name) noexcept;

/// Moves the stream to its end and returns the size of what it holds in bytes; -1 on failure.
[[nodiscard]] std::int64_t seekToEnd(std::FILE* file) noexcept;

}  // namespace zarn::platform
