#include "prefs/win_preferences.h"

#include <bit>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include "os/registry.h"
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

/// Of the preference's value, when it is of the type `wanted`. Whatever else is stored
/// under the name counts as not found, and is not read.
Result<os::RegistryData> readValue(std::string_view id, DWORD wanted, std::size_t mostBytes) {
  const auto name = wide(id);
  if (!name) return failure(ERROR_FILE_NOT_FOUND);
  const auto key = os::openRegistryKey(HKEY_CURRENT_USER, names::kPreferencesKey.wide, KEY_READ);
  if (!key) return failure(key.error());
  const auto type = os::registryValueType(key->get(), name->c_str());
  if (!type) return failure(type.error());
  if (*type != wanted) return failure(ERROR_FILE_NOT_FOUND);
  auto data = os::readRegistryValue(key->get(), name->c_str(), mostBytes);
  if (data && data->type != wanted) return failure(ERROR_FILE_NOT_FOUND);  // changed meanwhile
  return data;
}

/// A value of fewer bytes than a T counts as not found, too; one of more is an error.
template <typename T>
Result<T> readNumber(std::string_view id, DWORD wanted) {
  const auto data = readValue(id, wanted, sizeof(T));
  if (!data) return failure(data.error());
  if (data->bytes.size() < sizeof(T)) return failure(ERROR_FILE_NOT_FOUND);
  T value{};
  std::memcpy(&value, data->bytes.data(), sizeof(value));
  return value;
}

Result<std::string> readText(std::string_view id) {
  auto data = readValue(id, REG_SZ, std::numeric_limits<DWORD>::max());
  if (!data) return failure(data.error());
  data->bytes.push_back(std::byte{0});  // the second half of a last character that has but one
  return StringUtils::utf16to8(data->text());
}

/// What was read, else `fallback`. Only an error other than a missing value is logged.
template <typename T>
T valueOr(const Result<T>& read, T fallback, const char* reader, std::string_view id) {
  if (read) return *read;
  const std::uint32_t error = read.error().code();
  if (error != ERROR_FILE_NOT_FOUND) {
    logLine(LogLevel::Error, "WinPreferences::%s - GetRegistryValue for %s failed: 0x%x", reader,
            printable(id), error);
  }
  return fallback;
}

/// Runs `change` on the key, which is opened for each change: a key that was removed
/// meanwhile is made anew.
template <typename Change>
Result<void> changeValue(std::string_view id, const Change& change) {
  const auto name = wide(id);
  if (!name) return failure(ERROR_NO_UNICODE_TRANSLATION);
  const wchar_t* const path = names::kPreferencesKey.wide;
  auto key = os::openRegistryKey(HKEY_CURRENT_USER, path, KEY_SET_VALUE);
  if (!key && key.error() == SystemError(ERROR_FILE_NOT_FOUND))
    key = os::createRegistryKey(HKEY_CURRENT_USER, path, KEY_SET_VALUE);
  if (!key) return failure(key.error());
  return change(key->get(), name->c_str());
}

Result<void> writeBytes(std::string_view id, DWORD type, const void* data, std::size_t size) {
  return changeValue(
      id, [&](HKEY key, const wchar_t* name) { return os::writeRegistryValue(key, name, type, data, size); });
}

}  // namespace

std::unique_ptr<Preferences> makePlatformPreferences() {
  return std::make_unique<WinPreferences>();
}

WinPreferences::WinPreferences(Preference::Overrides defaultOverrides, ServerEventManager& events)
    : Preferences(std::move(defaultOverrides), events) {}

bool WinPreferences::getBoolValueWithDefault(std::string_view id, bool fallback) const {
  return valueOr(readNumber<DWORD>(id, REG_DWORD), DWORD{fallback}, "getBoolValueWithDefault", id) != 0;
}

std::string WinPreferences::getStringValueWithDefault(std::string_view id, std::string_view fallback) const {
  return valueOr(readText(id), std::string(fallback), "getStringValueWithDefault", id);
}

// The blanks in the next two names are part of log lines that programs outside look for.
std::int32_t WinPreferences::getIntValueWithDefault(std::string_view id, std::int32_t fallback) const {
  return valueOr(readNumber<std::int32_t>(id, REG_DWORD), fallback, " getIntValueWithDefault", id);
}

double WinPreferences::getDoubleValueWithDefault(std::string_view id, double fallback) const {
  static_assert(std::endian::native == std::endian::little, "stored doubles are little-endian");
  return valueOr(readNumber<double>(id, REG_BINARY), fallback, " getDoubleValueWithDefault", id);
}

bool WinPreferences::finishWrite(std::string_view id, const Result<void>& written) {
  if (!written) return false;
  notifyModified(id);
  return true;
}

bool WinPreferences::setStringValue(std::string_view id, std::string_view value) {
  const auto text = wide(value);
  if (!text) return false;
  return finishWrite(id, changeValue(id, [&](HKEY key, const wchar_t* name) {
                       return os::writeRegistryText(key, name, *text);
                     }));
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
      id, changeValue(id, [](HKEY key, const wchar_t* name) { return os::removeRegistryValue(key, name); }));
}

}  // namespace zarn
