#include <algorithm>

#include "os/process.h"
#include "util/policy_settings.h"
#include "util/stored_value_win.h"

namespace zarn {
namespace {

/// What cannot be read may be read a moment later; what was read at its start is in force until
/// the service ends.
constexpr int kTries = 3;

StoredSettings readOnce() {
  const auto key = openStoredKey(HKEY_LOCAL_MACHINE, names::kPolicyKey.wide);
  StoredSettings stored;
  for (std::size_t i = 0; i < stored.size(); ++i) {
    const PolicySetting& setting = policySettings()[i];
    if (setting.kind == PolicyKind::Text) {
      stored[i] = readStoredText(key, setting.wideValue, setting.most);
    } else {
      const auto toText = [](std::uint32_t number) -> Stored<std::string> { return std::to_string(number); };
      stored[i] = whenRead(readStoredNumber(key, setting.wideValue), toText);
    }
  }
  return stored;
}

bool isUnreadable(const Stored<std::string>& setting) {
  return std::holds_alternative<Unreadable>(setting);
}

}  // namespace

StoredSettings readPolicySettings() {
  StoredSettings stored = readOnce();
  for (int tries = 1; tries < kTries && std::ranges::any_of(stored, isUnreadable); ++tries)
    stored = readOnce();
  return stored;
}

Result<PolicyEffect> applyPolicySettings() {
  PolicyEffect effect = effectOf(readPolicySettings());
  for (const auto& [variable, text] : effect.changes) {
    const auto changed = os::setEnvironmentVariable(variable.c_str(), text);
    if (!changed) return failure(changed.error());
  }
  return effect;
}

}  // namespace zarn
