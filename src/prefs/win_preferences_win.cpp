#include "prefs/win_preferences.h"

#include <bit>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "os/handles_win.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/product_names.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

/// The UTF-16 form; nothing for a text that has none, which must not become the
/// empty name (the key's unnamed value) or an empty value.
std::optional<std::wstring> wide(std::string_view text) {
  std::wstring result = StringUtils::utf8to16(text);
  if (result.empty() && !text.empty()) return std::nullopt;
  return result;
}

struct OpenedValue {
  RegistryKey key;
  std::wstring name;
  LSTATUS error = ERROR_SUCCESS;
};

OpenedValue openForReading(std::string_view id) {
  OpenedValue value;
  const auto name = wide(id);
  if (!name) {
    value.error = ERROR_FILE_NOT_FOUND;
    return value;
  }
  value.name = *name;
  value.error =
      RegOpenKeyExW(HKEY_CURRENT_USER, names::kPreferencesKey.wide, 0, KEY_READ, value.key.receive());
  return value;
}

/// Another type than `wanted` is "not found", whatever its size.
LSTATUS judgeType(LSTATUS error, DWORD type, DWORD wanted) {
  const bool exists = error == ERROR_SUCCESS || error == ERROR_MORE_DATA;
  return exists && type != wanted ? ERROR_FILE_NOT_FOUND : error;
}

/// Reads a value of exactly sizeof(T) bytes; a shorter one counts as not found.
template <typename T>
LSTATUS readNumber(std::string_view id, DWORD wantedType, T& out) {
  const OpenedValue value = openForReading(id);
  if (value.error != ERROR_SUCCESS) return value.error;
  BYTE bytes[sizeof(T)] = {};
  DWORD type = REG_NONE;
  DWORD size = sizeof(T);
  LSTATUS error = RegQueryValueExW(value.key.get(), value.name.c_str(), nullptr, &type, bytes, &size);
  error = judgeType(error, type, wantedType);
  if (error != ERROR_SUCCESS) return error;
  if (size != sizeof(T)) return ERROR_FILE_NOT_FOUND;
  std::memcpy(&out, bytes, sizeof(T));
  return ERROR_SUCCESS;
}

LSTATUS readText(std::string_view id, std::string& out) {
  const OpenedValue value = openForReading(id);
  if (value.error != ERROR_SUCCESS) return value.error;
  // Others may make the text longer while it is asked for.
  constexpr int mostQuestions = 8;
  constexpr std::size_t usualBytes = 512;
  std::vector<BYTE> bytes(usualBytes);
  LSTATUS error = ERROR_MORE_DATA;
  for (int question = 0; error == ERROR_MORE_DATA && question < mostQuestions; ++question) {
    // Two zeroed bytes stay, since a stored text need not be terminated.
    auto size = static_cast<DWORD>(bytes.size() - sizeof(wchar_t));
    DWORD type = REG_NONE;
    error = RegQueryValueExW(value.key.get(), value.name.c_str(), nullptr, &type, bytes.data(), &size);
    error = judgeType(error, type, REG_SZ);
    if (error == ERROR_MORE_DATA) bytes.assign(2 * std::size_t{size} + sizeof(wchar_t), 0);
  }
  if (error != ERROR_SUCCESS) return error;
  std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
  std::memcpy(text.data(), bytes.data(), text.size() * sizeof(wchar_t));
  out = StringUtils::utf16to8(text);
  return ERROR_SUCCESS;
}

template <typename Change>
LSTATUS changeValue(std::string_view id, const Change& change) {
  const auto name = wide(id);
  if (!name) return ERROR_NO_UNICODE_TRANSLATION;
  RegistryKey key;
  LSTATUS error =
      RegOpenKeyExW(HKEY_CURRENT_USER, names::kPreferencesKey.wide, 0, KEY_SET_VALUE, key.receive());
  if (error == ERROR_FILE_NOT_FOUND)
    error = RegCreateKeyW(HKEY_CURRENT_USER, names::kPreferencesKey.wide, key.receive());
  if (error != ERROR_SUCCESS) return error;
  return change(key.get(), name->c_str());
}

LSTATUS writeBytes(std::string_view id, DWORD type, const void* data, std::size_t size) {
  return changeValue(id, [&](HKEY key, const wchar_t* name) {
    return RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(size));
  });
}

}  // namespace

WinPreferences::WinPreferences(Preference::Overrides defaultOverrides, ServerEventManager& events)
    : Preferences(std::move(defaultOverrides), events) {}

bool WinPreferences::getBoolValueWithDefault(std::string_view id, bool fallback) const {
  DWORD value = 0;
  const LSTATUS error = readNumber(id, REG_DWORD, value);
  if (error == ERROR_SUCCESS) return value != 0;
  if (error != ERROR_FILE_NOT_FOUND) {
    logLine(LogLevel::Error, "WinPreferences::getBoolValueWithDefault - GetRegistryValue for %s failed: 0x%x",
            printable(id), error);
  }
  return fallback;
}

std::string WinPreferences::getStringValueWithDefault(std::string_view id, std::string_view fallback) const {
  std::string value;
  const LSTATUS error = readText(id, value);
  if (error == ERROR_SUCCESS) return value;
  if (error != ERROR_FILE_NOT_FOUND) {
    logLine(LogLevel::Error,
            "WinPreferences::getStringValueWithDefault - GetRegistryValue for %s failed: 0x%x", printable(id),
            error);
  }
  return std::string(fallback);
}

std::int32_t WinPreferences::getIntValueWithDefault(std::string_view id, std::int32_t fallback) const {
  std::int32_t value = 0;
  const LSTATUS error = readNumber(id, REG_DWORD, value);
  if (error == ERROR_SUCCESS) return value;
  if (error != ERROR_FILE_NOT_FOUND) {
    logLine(LogLevel::Error, "WinPreferences:: getIntValueWithDefault - GetRegistryValue for %s failed: 0x%x",
            printable(id), error);
  }
  return fallback;
}

double WinPreferences::getDoubleValueWithDefault(std::string_view id, double fallback) const {
  static_assert(std::endian::native == std::endian::little, "stored doubles are little-endian");
  double value = 0.0;
  const LSTATUS error = readNumber(id, REG_BINARY, value);
  if (error == ERROR_SUCCESS) return value;
  if (error != ERROR_FILE_NOT_FOUND) {
    logLine(LogLevel::Error,
            "WinPreferences:: getDoubleValueWithDefault - GetRegistryValue for %s failed: 0x%x",
            printable(id), error);
  }
  return fallback;
}

bool WinPreferences::finishWrite(std::string_view id, std::int32_t error) {
  if (error != ERROR_SUCCESS) return false;
  notifyModified(id);
  return true;
}

bool WinPreferences::setStringValue(std::string_view id, std::string_view value) {
  const auto text = wide(value);
  if (!text) return false;
  return finishWrite(id, writeBytes(id, REG_SZ, text->c_str(), (text->size() + 1) * sizeof(wchar_t)));
}

bool WinPreferences::setBoolValue(std::string_view id, bool value) {
  const DWORD number = value ? 1 : 0;
  return finishWrite(id, writeBytes(id, REG_DWORD, &number, sizeof(number)));
}

bool WinPreferences::setIntValue(std::string_view id, std::int32_t value) {
  return finishWrite(id, writeBytes(id, REG_DWORD, &value, sizeof(value)));
}

bool WinPreferences::setDoubleValue(std::string_view id, double value) {
  return finishWrite(id, writeBytes(id, REG_BINARY, &value, sizeof(value)));
}

bool WinPreferences::removeValue(std::string_view id) {
  return finishWrite(
      id, changeValue(id, [](HKEY key, const wchar_t* name) { return RegDeleteValueW(key, name); }));
}

}  // namespace zarn
