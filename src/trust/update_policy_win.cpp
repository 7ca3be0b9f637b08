#include "os/registry.h"
#include "trust/update_policy.h"
#include "util/exceptions.h"
#include "util/io_deadline.h"
#include "util/logging.h"
#include "util/policy_settings.h"
#include "util/product_names.h"
#include "util/stored_value_win.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

/// Lies in the service's own key and not in the policy's, which belongs to administrators.
Stored<ProductVersion> readHighestInstalled() {
  return asVersion(readStoredText(openStoredKey(HKEY_LOCAL_MACHINE, names::kServiceKey.wide),
                                  names::kHighestInstalledVersionValue.wide, kLongestProductName));
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

StoredPolicy readStoredPolicy() {
  const auto policy = openStoredKey(HKEY_LOCAL_MACHINE, names::kPolicyKey.wide);
  return {readStoredText(policy, names::kRequiredProductValue.wide, kLongestProductName),
          readStoredNumber(policy, names::kRefuseOlderValue.wide), readHighestInstalled()};
}

PolicyResult CheckUpdatePolicy(const std::string& path) {
  auto result = judgeByPolicy(readStoredPolicy(), builtInPolicy(), [&] {
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
