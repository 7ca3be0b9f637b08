// Owners for Windows handles, and file facts that handles give. Includes
// windows.h: only for files that call Windows.
#pragma once

#include <windows.h>

#include <string>

#include "os/handles.h"
#include "os/system_error.h"

namespace zarn {

/// Handles whose calls answer INVALID_HANDLE_VALUE on failure (CreateFileW).
struct FileHandleTraits {
  using Handle = HANDLE;
  static Handle invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static void close(Handle handle) noexcept { CloseHandle(handle); }
};
using FileHandle = ScopedHandle<FileHandleTraits>;

/// Handles whose calls answer NULL on failure (processes, threads, events).
struct KernelHandleTraits {
  using Handle = HANDLE;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle handle) noexcept { CloseHandle(handle); }
};
using KernelHandle = ScopedHandle<KernelHandleTraits>;

struct RegistryKeyTraits {
  using Handle = HKEY;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle handle) noexcept { RegCloseKey(handle); }
};
using RegistryKey = ScopedHandle<RegistryKeyTraits>;

/// The service control manager, and services it opened.
struct ServiceHandleTraits {
  using Handle = SC_HANDLE;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle handle) noexcept { CloseServiceHandle(handle); }
};
using ServiceHandle = ScopedHandle<ServiceHandleTraits>;

/// What a call allocated for its caller.
struct LocalMemoryTraits {
  using Handle = void*;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle memory) noexcept { LocalFree(memory); }
};
using LocalMemory = ScopedHandle<LocalMemoryTraits>;

/// Whether it is a plain file on disk (no pipe, device, directory or reparse point) that
/// has exactly one name: whoever may write where a file lies could otherwise have a
/// privileged process read or write any other file for them.
[[nodiscard]] Result<void> checkPlainFileWithOneName(HANDLE file) noexcept;

/// Removes a name at once where the system can, though others have the file open or it
/// is read-only; else as soon as nobody has it open. The handle must allow deleting.
[[nodiscard]] Result<void> removeOpenedFile(HANDLE file) noexcept;

/// Whether a file goes when the handle, which must allow deleting, is closed.
[[nodiscard]] Result<void> setPassing(HANDLE file, bool passes) noexcept;

/// The path under which the system knows what a handle opened, every link on the way
/// followed, with the prefix "\\?\".
[[nodiscard]] Result<std::wstring> finalPath(HANDLE file);

}  // namespace zarn
