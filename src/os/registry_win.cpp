#include <algorithm>
#include <cstring>

#include "os/registry.h"

namespace zarn::os {
namespace {

Result<void> resultOfStatus(LSTATUS status) {
  if (status == ERROR_SUCCESS) return {};
  return failure(static_cast<std::uint32_t>(status));
}

}  // namespace

std::wstring RegistryData::text() const {
  std::wstring result(bytes.size() / sizeof(wchar_t), L'\0');
  std::memcpy(result.data(), bytes.data(), result.size() * sizeof(wchar_t));
  return result;
}

Result<RegistryKey> openRegistryKey(HKEY root, const wchar_t* path, REGSAM access) {
  RegistryKey key;
  const auto opened = resultOfStatus(RegOpenKeyExW(root, path, 0, access, key.receive()));
  if (!opened) return failure(opened.error());
  return key;
}

Result<RegistryKey> createRegistryKey(HKEY root, const wchar_t* path, REGSAM access) {
  RegistryKey key;
  const auto created =
      resultOfStatus(RegCreateKeyExW(root, path, 0, nullptr, 0, access, nullptr, key.receive(), nullptr));
  if (!created) return failure(created.error());
  return key;
}

Result<RegistryData> readRegistryValue(HKEY key, const wchar_t* name, std::size_t mostBytes) {
  constexpr std::size_t usualBytes = 512;
  constexpr int mostQuestions = 8;
  RegistryData data;
  LSTATUS status = ERROR_MORE_DATA;
  auto size = static_cast<DWORD>(std::min(usualBytes, mostBytes));
  // The value may grow between two questions, so that each leaves room to spare; whoever
  // keeps it growing all the same gets an error.
  for (int question = 0; status == ERROR_MORE_DATA && question < mostQuestions; ++question) {
    if (size > mostBytes) break;
    if (question > 0) size = static_cast<DWORD>(std::min(2 * std::size_t{size}, mostBytes));
    data.bytes.resize(size);
    status =
        RegQueryValueExW(key, name, nullptr, &data.type, reinterpret_cast<BYTE*>(data.bytes.data()), &size);
  }
  if (status != ERROR_SUCCESS) return failure(static_cast<std::uint32_t>(status));
  data.bytes.resize(size);
  return data;
}

Result<DWORD> registryValueType(HKEY key, const wchar_t* name) {
  DWORD type = REG_NONE;
  const auto asked = resultOfStatus(RegQueryValueExW(key, name, nullptr, &type, nullptr, nullptr));
  if (!asked) return failure(asked.error());
  return type;
}

Result<std::uint32_t> readRegistryNumber(HKEY key, const wchar_t* name) {
  std::uint32_t number = 0;
  const auto data = readRegistryValue(key, name, sizeof(number));
  if (!data) return failure(data.error());
  if (data->type != REG_DWORD || data->bytes.size() != sizeof(number)) return failure(ERROR_INVALID_DATATYPE);
  std::memcpy(&number, data->bytes.data(), sizeof(number));
  return number;
}

Result<void> writeRegistryValue(HKEY key, const wchar_t* name, DWORD type, const void* bytes,
                                std::size_t size) {
  return resultOfStatus(
      RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(bytes), static_cast<DWORD>(size)));
}

Result<void> writeRegistryText(HKEY key, const wchar_t* name, const std::wstring& text) {
  return writeRegistryValue(key, name, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}

Result<void> removeRegistryValue(HKEY key, const wchar_t* name) {
  return resultOfStatus(RegDeleteValueW(key, name));
}

Result<std::uint64_t> registryKeyTime(HKEY key) {
  FILETIME time{};
  const auto asked = resultOfStatus(RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr,
                                                     nullptr, nullptr, nullptr, nullptr, nullptr, &time));
  if (!asked) return failure(asked.error());
  return std::uint64_t{time.dwHighDateTime} << 32U | time.dwLowDateTime;
}

std::vector<std::wstring> registryValueNames(HKEY key) {
  constexpr DWORD longestName = 16384;
  std::wstring name(longestName, L'\0');
  std::vector<std::wstring> result;
  for (DWORD index = 0;; ++index) {
    DWORD length = longestName;
    if (RegEnumValueW(key, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
      return result;
    result.push_back(name.substr(0, length));
  }
}

}  // namespace zarn::os
