// What opening by path and opening in a held folder share. Includes windows.h; not for
// other libraries.
#pragma once

#include "os/files.h"
#include "os/handles_win.h"

namespace zarn::os {

// A pipe's server learns nothing about us and cannot impersonate us.
inline constexpr DWORD kAnonymous = SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS;

/// A mode of fopen in Windows' terms; an empty one reads.
struct OpenMode {
  DWORD access = GENERIC_READ;
  DWORD disposition = OPEN_EXISTING;
  int descriptorFlags = 0;
};
[[nodiscard]] OpenMode parseMode(const char* mode);

/// A stream that owns `handle`.
[[nodiscard]] OpenResult toStream(FileHandle handle, const OpenMode& parsed, const char* mode);

}  // namespace zarn::os
