// Stored values of the registry. Includes windows.h: only for files that call Windows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "os/registry.h"
#include "util/stored_value.h"

namespace zarn {

[[nodiscard]] Unreadable unreadable(SystemError error);

/// Opens a key for reading its values; a key that is not there is a missing one.
[[nodiscard]] Stored<RegistryKey> openStoredKey(HKEY root, const wchar_t* path);

/// A value of type REG_SZ in UTF-8, up to its first zero character. Longer ones than
/// `mostCharacters` (UTF-16 units, with room for the end), other types and what is no
/// text are unreadable.
[[nodiscard]] Stored<std::string> readStoredText(const Stored<RegistryKey>& key, const wchar_t* name,
                                                 std::size_t mostCharacters);

/// A value of type REG_DWORD; others are unreadable.
[[nodiscard]] Stored<std::uint32_t> readStoredNumber(const Stored<RegistryKey>& key, const wchar_t* name);

}  // namespace zarn
