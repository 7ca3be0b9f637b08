#include <windows.h>

#include <array>

#include "os/error_text.h"
#include "os/handles_win.h"
#include "trust/update_policy.h"
#include "util/exceptions.h"
#include "util/io_deadline.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/product_names.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

/// Longer than any product name.
constexpr std::size_t kLongestText = 1024;

Unreadable unreadable(LSTATUS error) {
  return {printable(describeSystemError(static_cast<std::uint32_t>(error)))};
}

/// The key for reading; nothing when there is none.
Stored<RegistryKey> openForReading(const wchar_t* path) {
  RegistryKey key;
  const LSTATUS error = RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_QUERY_VALUE, key.receive());
  if (error == ERROR_SUCCESS) return key;
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return std::monostate();
  return unreadable(error);
}

/// A value of the type `wanted` and at most `capacity` bytes; its size.
Stored<DWORD> readValue(const Stored<RegistryKey>& key, const wchar_t* name, DWORD wanted, void* buffer,
                        std::size_t capacity) {
  if (const auto* problem = std::get_if<Unreadable>(&key)) return *problem;
  const auto* const opened = std::get_if<RegistryKey>(&key);
  if (opened == nullptr) return std::monostate();
  DWORD type = REG_NONE;
  auto size = static_cast<DWORD>(capacity);
  const LSTATUS error =
      RegQueryValueExW(opened->get(), name, nullptr, &type, static_cast<BYTE*>(buffer), &size);
  if (error == ERROR_FILE_NOT_FOUND) return std::monostate();
  if (error != ERROR_SUCCESS && error != ERROR_MORE_DATA) return unreadable(error);
  if (type != wanted) return Unreadable{"it has another type"};
  if (error == ERROR_MORE_DATA) return Unreadable{"it is too long"};
  return size;
}

Stored<std::string> readText(const Stored<RegistryKey>& key, const wchar_t* name) {
  std::array<wchar_t, kLongestText> text{};
  const auto size = readValue(key, name, REG_SZ, text.data(), sizeof(text));
  if (const auto* problem = std::get_if<Unreadable>(&size)) return *problem;
  const auto* const bytes = std::get_if<DWORD>(&size);
  if (bytes == nullptr) return std::monostate();
  const std::wstring_view stored(text.data(), *bytes / sizeof(wchar_t));
  const std::wstring_view wide = stored.substr(0, stored.find(L'\0'));
  std::string result = StringUtils::utf16to8(wide);
  // An empty text stands for "no rule": what cannot be converted must not become one.
  if (*bytes % sizeof(wchar_t) != 0 || (result.empty() && !wide.empty())) {
    return Unreadable{"it is no text"};
  }
  return result;
}

Stored<std::uint32_t> readNumber(const Stored<RegistryKey>& key, const wchar_t* name) {
  std::uint32_t number = 0;
  const auto size = readValue(key, name, REG_DWORD, &number, sizeof(number));
  if (const auto* problem = std::get_if<Unreadable>(&size)) return *problem;
  const auto* const bytes = std::get_if<DWORD>(&size);
  if (bytes == nullptr) return std::monostate();
  if (*bytes != sizeof(number)) return Unreadable{"it is too short"};
  return number;
}

Stored<ProductVersion> readHighestInstalled() {
  return asVersion(
      readText(openForReading(names::kServiceKey.wide), names::kHighestInstalledVersionValue.wide));
}

StoredPolicy readPolicy() {
  const auto policy = openForReading(names::kPolicyKey.wide);
  return {readText(policy, names::kRequiredProductValue.wide),
          readNumber(policy, names::kRefuseOlderValue.wide), readHighestInstalled()};
}

LSTATUS writeHighestInstalled(const std::string& version) {
  RegistryKey key;
  const LSTATUS error = RegCreateKeyExW(HKEY_LOCAL_MACHINE, names::kServiceKey.wide, 0, nullptr, 0,
                                        KEY_SET_VALUE, nullptr, key.receive(), nullptr);
  if (error != ERROR_SUCCESS) return error;
  const std::wstring text = StringUtils::utf8to16(version);
  return RegSetValueExW(key.get(), names::kHighestInstalledVersionValue.wide, 0, REG_SZ,
                        reinterpret_cast<const BYTE*>(text.c_str()),
                        static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

void logNotRemembered(const std::string& reason) {
  logLine(LogLevel::Error, "The highest installed version was not stored: %s", reason);
}

}  // namespace

PolicyResult CheckUpdatePolicy(const std::string& path) {
  auto result = judgeByPolicy(readPolicy(), builtInPolicy(), [&] {
    const IoDeadline deadline(kOpenLimit);
    return readFileVersion(path);
  });
  if (!result.isAllowed()) {
    logLine(LogLevel::Error, "The bundle is refused by policy: %s", result.sentence());
  }
  return result;
}

void rememberInstalledVersion(const ProductVersion& version) noexcept {
  quietly([&] {
    const auto highest = readHighestInstalled();
    if (const auto* problem = std::get_if<Unreadable>(&highest)) return logNotRemembered(problem->reason);
    const auto text = versionToRemember(highest, version);
    if (!text) return;
    const LSTATUS error = writeHighestInstalled(*text);
    if (error != ERROR_SUCCESS) logNotRemembered(unreadable(error).reason);
  });
}

}  // namespace zarn
