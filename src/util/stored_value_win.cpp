#include <cstring>
#include <utility>

#include "os/error_text.h"
#include "util/printable.h"
#include "util/stored_value_win.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

template <typename T>
Stored<T> asStored(Result<T> result) {
  if (result) return std::move(*result);
  if (result.error().isNotFound()) return std::monostate();
  return unreadable(result.error());
}

/// The bytes of a value of the type `wanted`, at most `mostBytes` of them. The type is
/// judged before the length, so that an administrator hears of the graver mistake.
Stored<os::RegistryData> readStoredValue(const Stored<RegistryKey>& key, const wchar_t* name, DWORD wanted,
                                         std::size_t mostBytes) {
  return whenRead(key, [&](const RegistryKey& opened) -> Stored<os::RegistryData> {
    const auto type = os::registryValueType(opened.get(), name);
    auto data = os::readRegistryValue(opened.get(), name, mostBytes);
    if ((type && *type != wanted) || (data && data->type != wanted)) return Unreadable{"it has another type"};
    if (!data && data.error().code() == ERROR_MORE_DATA) return Unreadable{"it is too long"};
    // Only a value that is not there is missing.
    if (!data && data.error().code() != ERROR_FILE_NOT_FOUND) return unreadable(data.error());
    return asStored(std::move(data));
  });
}

}  // namespace

Unreadable unreadable(SystemError error) {
  return {printable(describeSystemError(error)), error.code() == ERROR_ACCESS_DENIED};
}

Stored<RegistryKey> openStoredKey(HKEY root, const wchar_t* path) {
  return asStored(os::openRegistryKey(root, path, KEY_QUERY_VALUE));
}

Stored<std::string> readStoredText(const Stored<RegistryKey>& key, const wchar_t* name,
                                   std::size_t mostCharacters) {
  const auto data = readStoredValue(key, name, REG_SZ, (mostCharacters + 1) * sizeof(wchar_t));
  return whenRead(data, [](const os::RegistryData& stored) -> Stored<std::string> {
    const std::wstring text = stored.text();
    const std::wstring wide = text.substr(0, text.find(L'\0'));
    std::string result = StringUtils::utf16to8(wide);
    // An empty text has a meaning of its own: what cannot be converted must not become one.
    if (stored.bytes.size() % sizeof(wchar_t) != 0 || (result.empty() && !wide.empty())) {
      return Unreadable{"it is no text"};
    }
    return result;
  });
}

Stored<std::uint32_t> readStoredNumber(const Stored<RegistryKey>& key, const wchar_t* name) {
  const auto data = readStoredValue(key, name, REG_DWORD, sizeof(std::uint32_t));
  return whenRead(data, [](const os::RegistryData& stored) -> Stored<std::uint32_t> {
    std::uint32_t number = 0;
    if (stored.bytes.size() != sizeof(number)) return Unreadable{"it is too short"};
    std::memcpy(&number, stored.bytes.data(), sizeof(number));
    return number;
  });
}

}  // namespace zarn
