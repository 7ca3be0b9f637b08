// Owners for Windows handles, and file facts that handles give. Includes
// windows.h: only for files that call Windows.
#pragma once

#include <windows.h>

#include <string>

#include "util/scoped_handle.h"

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

/// True for a plain file on disk (no pipe, device, directory or reparse point)
/// that has exactly one name. Sets the last error when the answer is no.
[[nodiscard]] inline bool isPlainFileWithOneName(HANDLE file) noexcept {
  BY_HANDLE_FILE_INFORMATION information{};
  if (GetFileType(file) != FILE_TYPE_DISK) {
    SetLastError(ERROR_BAD_FILE_TYPE);
    return false;
  }
  if (GetFileInformationByHandle(file, &information) == 0) return false;
  constexpr DWORD unwanted = FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY;
  if ((information.dwFileAttributes & unwanted) != 0 || information.nNumberOfLinks != 1) {
    SetLastError(ERROR_ACCESS_DENIED);
    return false;
  }
  return true;
}

/// The path under which the system knows what a handle opened, every link on the
/// way followed, with the prefix "\\?\"; empty, with the last error set, on failure.
[[nodiscard]] std::wstring finalPath(HANDLE file);

}  // namespace zarn
