// Reading and writing the registry. Includes windows.h: only for files that call Windows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "os/handles_win.h"
#include "os/system_error.h"

namespace zarn::os {

/// What a value holds, as it is stored: a stored text need not be terminated.
struct RegistryData {
  DWORD type = REG_NONE;
  std::vector<std::byte> bytes;

  /// The characters as stored, zero characters included; a last odd byte is left out.
  [[nodiscard]] std::wstring text() const;
};

/// Fails with ERROR_FILE_NOT_FOUND when there is no such key.
[[nodiscard]] Result<RegistryKey> openRegistryKey(HKEY root, const wchar_t* path, REGSAM access);
/// Makes the key, and those above it, when they are missing.
[[nodiscard]] Result<RegistryKey> createRegistryKey(HKEY root, const wchar_t* path, REGSAM access);

/// Fails with ERROR_MORE_DATA for a value of more than `mostBytes`, of which nothing is
/// read then. An empty name is the key's unnamed value.
[[nodiscard]] Result<RegistryData> readRegistryValue(HKEY key, const wchar_t* name, std::size_t mostBytes);

/// Of a value of any size, which is not read.
[[nodiscard]] Result<DWORD> registryValueType(HKEY key, const wchar_t* name);

/// Of a value of type REG_DWORD and its size; fails with ERROR_INVALID_DATATYPE for others.
[[nodiscard]] Result<std::uint32_t> readRegistryNumber(HKEY key, const wchar_t* name);

[[nodiscard]] Result<void> writeRegistryValue(HKEY key, const wchar_t* name, DWORD type, const void* bytes,
                                              std::size_t size);
/// As REG_SZ, terminated.
[[nodiscard]] Result<void> writeRegistryText(HKEY key, const wchar_t* name, const std::wstring& text);
[[nodiscard]] Result<void> removeRegistryValue(HKEY key, const wchar_t* name);

/// When a value of the key was last written or removed, or a key below it made or removed;
/// in the units of FILETIME.
[[nodiscard]] Result<std::uint64_t> registryKeyTime(HKEY key);

/// The names of a key's values, in no particular order.
[[nodiscard]] std::vector<std::wstring> registryValueNames(HKEY key);

}  // namespace zarn::os
