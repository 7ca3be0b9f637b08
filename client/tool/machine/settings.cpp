#include "client/tool/machine/settings.h"

#include <windows.h>

#include <memory>
#include <string>
#include <utility>

#include "client/tool/machine/environment.h"
#include "client/tool/machine/service.h"
#include "log/log.h"
#include "os/registry.h"
#include "os/text.h"
#include "prefs/test_preferences.h"
#include "trust/account_service_host.h"
#include "trust/update_policy.h"
#include "util/policy_settings.h"
#include "util/product_names.h"
#include "util/stored_value_win.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

const char* nameOfLevel(LogLevel level) {
  if (level == LogLevel::Verbose) return "verbose";
  return level == LogLevel::Debug ? "debug" : "info";
}

/// The level that the preferences of the service's account ask for, worked out by the
/// logger's own rule on a copy of them in memory.
Setting levelByPreferences(const Environments& environments) {
  const Setting overrides = variableInForce(names::kDefaultPreferencesVariable.narrow, environments);
  const auto defaults = std::make_shared<const QueryString>(overrides.value.value_or(""));
  TestPreferences store(defaults);
  store.registerCatalogue();
  Setting level{names::kLogLevelValue.narrow, {}, SettingSource::BuiltIn, {}};
  const auto key = openStoredKey(HKEY_USERS, (serviceAccountKey() + names::kPreferencesKey.wide).c_str());
  for (const auto& preference : {preference::kLogVerbose, preference::kLogDebug, preference::kLogMemoryUse}) {
    const std::string id(preference.id());
    const auto stored = readStoredNumber(key, StringUtils::utf8to16(id).c_str());
    const auto* const problem = problemOf(stored);
    if (problem != nullptr && problem->isDenied) {
      return {level.name, {}, {}, "an administrator's rights are needed to read the preferences"};
    }
    // What is of another type counts as not stored, as for the service.
    if (const auto* const number = std::get_if<std::uint32_t>(&stored)) {
      store.setBoolValue(id, *number != 0);
      level.source = SettingSource::Preference;
    } else if (defaults->find(id) != nullptr && level.source == SettingSource::BuiltIn) {
      level.source = overrides.source;
    }
  }
  level.value = nameOfLevel(thresholdByPreferences(store));
  return level;
}

/// 0 of a key that is not there.
std::optional<std::uint64_t> timeOf(const std::wstring& path) {
  const auto key = os::openRegistryKey(HKEY_LOCAL_MACHINE, path.c_str(), KEY_QUERY_VALUE);
  if (!key) return key.error().isNotFound() ? std::optional<std::uint64_t>(0) : std::nullopt;
  const auto time = os::registryKeyTime(key->get());
  return time ? std::optional(*time) : std::nullopt;
}

}  // namespace

std::optional<bool> settingsChangedSinceStart(std::uint32_t processId) {
  const std::wstring policy = names::kPolicyKey.wide;
  std::vector<std::wstring> keys = variableKeys();
  keys.push_back(policy);
  keys.push_back(policy.substr(0, policy.rfind(L'\\')));  // tells that the policy's own is gone
  std::vector<std::optional<std::uint64_t>> written;
  written.reserve(keys.size());
  for (const std::wstring& key : keys) written.push_back(timeOf(key));
  return changedSince(processStart(processId), written);
}

std::vector<Setting> serviceSettings() {
  const Environments environments{serviceVariables(), machineVariables()};
  const UpdatePolicy builtIn = builtInPolicy();
  std::array<Setting, kPolicySettingCount> otherwise;
  for (std::size_t i = 0; i < otherwise.size(); ++i) {
    const std::string name = policySettings()[i].value;
    otherwise[i] = {name, "", SettingSource::BuiltIn, {}};
    if (name == names::kAccountServiceHostValue.narrow) otherwise[i].value = builtInAccountServiceHost();
    if (name == names::kRequiredProductValue.narrow) otherwise[i].value = builtIn.requiredProduct;
    if (name == names::kRefuseOlderValue.narrow) otherwise[i].value = builtIn.refusesOlder ? "1" : "0";
    if (name == names::kLogLevelValue.narrow) otherwise[i] = levelByPreferences(environments);
  }
  return settingsInForce(readPolicySettings(), environments, otherwise);
}

}  // namespace zarn::tool
