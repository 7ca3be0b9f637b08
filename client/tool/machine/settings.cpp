#include "client/tool/machine/settings.h"

#include <memory>
#include <string>
#include <utility>

#include "client/tool/machine/environment.h"
#include "client/tool/machine/service.h"
#include "log/log.h"
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

}  // namespace

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
