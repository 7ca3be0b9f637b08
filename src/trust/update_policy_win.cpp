#include <windows.h>

#include <cstring>
#include <utility>

#include "os/error_text.h"
#include "os/registry.h"
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
constexpr std::size_t kLongestTextBytes = 1024 * sizeof(wchar_t);

Unreadable unreadable(SystemError error) {
  return {printable(describeSystemError(error))};
}

template <typename T>
Stored<T> asStored(Result<T> result) {
  if (result) return std::move(*result);
  if (result.error().isNotFound()) return std::monostate();
  return unreadable(result.error());
}

Stored<RegistryKey> openForReading(const wchar_t* path) {
  return asStored(os::openRegistryKey(HKEY_LOCAL_MACHINE, path, KEY_QUERY_VALUE));
}

/// The bytes of a value of the type `wanted`, at most `mostBytes` of them. The type is
/// judged before the length, so that an administrator hears of the graver mistake.
Stored<os::RegistryData> readValue(const Stored<RegistryKey>& key, const wchar_t* name, DWORD wanted,
                                   std::size_t mostBytes) {
  return whenRead(key, [&](const RegistryKey& opened) -> Stored<os::RegistryData> {
    const auto type = os::registryValueType(opened.get(), name);
    auto data = os::readRegistryValue(opened.get(), name, mostBytes);
    if ((type && *type != wanted) || (data && data->type != wanted)) return Unreadable{"it has another type"};
    if (!data && data.error().code() == ERROR_MORE_DATA) return Unreadable{"it is too long"};
    // Only a value that is not there is no rule.
    if (!data && data.error().code() != ERROR_FILE_NOT_FOUND) return unreadable(data.error());
    return asStored(std::move(data));
  });
}

Stored<std::string> readText(const Stored<RegistryKey>& key, const wchar_t* name) {
  const auto data = readValue(key, name, REG_SZ, kLongestTextBytes);
  return whenRead(data, [](const os::RegistryData& stored) -> Stored<std::string> {
    const std::wstring text = stored.text();
    const std::wstring wide = text.substr(0, text.find(L'\0'));
    std::string result = StringUtils::utf16to8(wide);
    // An empty text stands for "no rule": what cannot be converted must not become one.
    if (stored.bytes.size() % sizeof(wchar_t) != 0 || (result.empty() && !wide.empty())) {
      return Unreadable{"it is no text"};
    }
    return result;
  });
}

Stored<std::uint32_t> readNumber(const Stored<RegistryKey>& key, const wchar_t* name) {
  const auto data = readValue(key, name, REG_DWORD, sizeof(std::uint32_t));
  return whenRead(data, [](const os::RegistryData& stored) -> Stored<std::uint32_t> {
    std::uint32_t number = 0;
    if (stored.bytes.size() != sizeof(number)) return Unreadable{"it is too short"};
    std::memcpy(&number, stored.bytes.data(), sizeof(number));
    return number;
  });
}

/// Lies in the service's own key and not in the policy's, which belongs to administrators.
Stored<ProductVersion> readHighestInstalled() {
  return asVersion(
      readText(openForReading(names::kServiceKey.wide), names::kHighestInstalledVersionValue.wide));
}

StoredPolicy readPolicy() {
  const auto policy = openForReading(names::kPolicyKey.wide);
  return {readText(policy, names::kRequiredProductValue.wide),
          readNumber(policy, names::kRefuseOlderValue.wide), readHighestInstalled()};
}

Result<void> writeHighestInstalled(const std::string& version) {
  const auto key = os::createRegistryKey(HKEY_LOCAL_MACHINE, names::kServiceKey.wide, KEY_SET_VALUE);
  if (!key) return failure(key.error());
  return os::writeRegistryText(key->get(), names::kHighestInstalledVersionValue.wide,
                               StringUtils::utf8to16(version));
}

void logNotRemembered(const std::string& reason) {
  logLine(LogLevel::Error, "The highest installed version was not stored: %s", reason);
}

}  // namespace

PolicyResult CheckUpdatePolicy(const std::string& path) {
  auto result = judgeByPolicy(readPolicy(), builtInPolicy(), [&] {
    const IoDeadline deadline(kOpenLimit);  // the bundle may lie on a share that does not answer
    return readFileVersion(path);
  });
  if (!result.isAllowed()) {
    logLine(LogLevel::Error, "The bundle is refused by policy: %s", result.sentence());
  }
  return result;
}

// The installer has run by now: whatever fails here must not change the request's answer.
void rememberInstalledVersion(const ProductVersion& version) noexcept {
  quietly([&] {
    const auto highest = readHighestInstalled();
    if (const auto* problem = std::get_if<Unreadable>(&highest)) return logNotRemembered(problem->reason);
    const auto text = versionToRemember(highest, version);
    if (!text) return;
    const auto written = writeHighestInstalled(*text);
    if (!written) logNotRemembered(unreadable(written.error()).reason);
  });
}

}  // namespace zarn
