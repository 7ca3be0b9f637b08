// Which settings the service has, and where each comes from: an administrator's policy,
// the service's own environment, the machine's, its account's preferences, or what is
// built in. The first of them that has one counts.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/tool/report/answer.h"
#include "os/text.h"
#include "util/policy_settings.h"
#include "util/stored_value.h"

namespace zarn::tool {

enum class SettingSource : std::uint8_t { Policy, Service, Machine, Preference, BuiltIn };

/// One setting.
struct Setting {
  std::string name;                     ///< of the policy's value
  std::optional<std::string> value;     ///< in force; nothing: not known, or unusable
  std::optional<SettingSource> source;  ///< nothing: it may not be asked
  std::string problem;                  ///< why there is no value, or why it is not the policy's
};

/// Environment variables, in UTF-8; names without regard to the case of letters.
struct LessIgnoringCase {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const noexcept {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [](char x, char y) { return os::lowerCase(x) < os::lowerCase(y); });
  }
};
using Variables = std::map<std::string, std::string, LessIgnoringCase>;

struct Environments {
  Stored<Variables> service;
  Stored<Variables> machine;
};

/// A variable as the service sees it. One that is set for the service alone hides the
/// machine's, also when it is empty; what is empty is as good as not set.
[[nodiscard]] Setting variableInForce(const std::string& name, const Environments& environments);

/// An address without its name and password, for which "***" stands; from the first letter
/// behind the scheme to the last "@", so that no sign in a password can show the rest of it.
[[nodiscard]] std::string withoutCredentials(std::string address);

/// In the table's order. `otherwise` is what holds when neither policy nor environment
/// has a value. Names and passwords in addresses are masked.
[[nodiscard]] std::vector<Setting> settingsInForce(const StoredSettings& policy,
                                                   const Environments& environments,
                                                   const std::array<Setting, kPolicySettingCount>& otherwise);

/// What to set to change the setting of this name in the table, in words: the policy's value
/// where that is in force, else the environment variable.
[[nodiscard]] std::string placeOf(const std::string& name, const std::vector<Setting>& settings);

/// Whether one of the times at which settings were written is later than the service's start.
/// What is not known is nothing.
[[nodiscard]] std::optional<bool> changedSince(const std::optional<std::uint64_t>& start,
                                               const std::vector<std::optional<std::uint64_t>>& written);

/// "h:2 (policy)", printable, with the problem behind it; "unknown" when there is no such setting.
[[nodiscard]] std::string settingInWords(const std::string& name, const std::vector<Setting>& settings);

/// A line each, and an array of objects.
[[nodiscard]] std::string settingsText(const std::vector<Setting>& settings);
[[nodiscard]] Json settingsArray(const std::vector<Setting>& settings);

}  // namespace zarn::tool
