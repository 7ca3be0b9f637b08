// What safeOpen and held folders share. Includes windows.h; not for other libraries.
#pragma once

#include "util/file_utils.h"
#include "util/windows_handles.h"

namespace zarn::FileUtils {

// A pipe's server learns nothing about us and cannot impersonate us.
inline constexpr DWORD kAnonymous = SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS;

/// A mode of fopen in Windows' terms; an empty one reads.
struct OpenMode {
  DWORD access = GENERIC_READ;
  DWORD disposition = OPEN_EXISTING;
  int descriptorFlags = 0;
};
[[nodiscard]] OpenMode parseMode(const char* mode);

/// A stream that owns `handle`. Null, and logged, on failure.
[[nodiscard]] ScopedFile toStream(FileHandle handle, const OpenMode& parsed, const char* mode);

}  // namespace zarn::FileUtils
