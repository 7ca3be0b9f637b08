#include "client/tool/report/settings.h"

#include <algorithm>
#include <utility>

#include "util/printable.h"
#include "util/product_names.h"

namespace zarn::tool {
namespace {

constexpr char kPolicyUnusable[] = "the policy's value cannot be used: ";
constexpr char kRightsAreMissing[] = "an administrator's rights are needed to read it";

struct SourceWords {
  const char* key;   ///< for scripts
  const char* text;  ///< for people
};
SourceWords wordsOf(SettingSource source) {
  switch (source) {
    case SettingSource::Policy:
      return {"policy", "policy"};
    case SettingSource::Service:
      return {"service", "the service's own environment"};
    case SettingSource::Machine:
      return {"machine", "the machine's environment"};
    case SettingSource::Preference:
      return {"preference", "preference"};
    case SettingSource::BuiltIn:
      break;
  }
  return {"builtIn", "built in"};
}

std::string problemInWords(const Unreadable& problem) {
  return problem.isDenied ? kRightsAreMissing : "it cannot be read: " + problem.reason;
}

std::string inWords(const Setting& setting) {
  std::string value = setting.value.value_or(setting.source ? "unusable" : "unknown");
  if (value.empty()) value = "none";
  std::string result = printable(value);
  if (setting.source) result += std::string(" (") + wordsOf(*setting.source).text + ")";
  if (!setting.problem.empty()) result += ": " + setting.problem;
  return result;
}

/// Whether the policy has a value whose variable stands alone, without this one.
bool isCleared(std::string_view variable, const StoredSettings& policy) {
  for (std::size_t i = 0; i < policy.size(); ++i) {
    if (std::holds_alternative<std::monostate>(policy[i])) continue;
    for (const char* const other : policySettings()[i].cleared) {
      if (other != nullptr && variable == other) return true;
    }
  }
  return false;
}

Setting fromEnvironment(const PolicySetting& row, const Environments& environments) {
  Setting found = variableInForce(row.variable, environments);
  // libcurl asks for this one when there is no other.
  const bool isProxy = std::string_view(row.variable) == names::kHttpsProxyVariable.narrow;
  if (isProxy && found.value == "") {
    found = variableInForce(names::kAllProxyVariable.narrow, environments);
  }
  // A level that is none is passed over, and the preferences count.
  const bool isLevel = std::string_view(row.variable) == names::kLogLevelVariable.narrow;
  if (isLevel && found.value && !row.isUsable(*found.value)) found.value = "";
  return found;
}

Setting inForce(std::size_t index, const StoredSettings& policy, const Environments& environments,
                const Setting& otherwise) {
  const PolicySetting& row = policySettings()[index];
  const Stored<std::string>& stored = policy[index];
  const auto* const unread = problemOf(stored);
  if (unread != nullptr && unread->isDenied) return {row.value, {}, {}, kRightsAreMissing};
  const std::string problem = policyProblem(row, stored);
  const auto* const text = std::get_if<std::string>(&stored);
  // Which value cannot be used matters also where another one is in force.
  const bool givesWay = row.variable != nullptr && row.whenUnusable == nullptr;
  if (!problem.empty() && !givesWay) {
    return {row.value, {}, SettingSource::Policy, kPolicyUnusable + problem};
  }
  if (problem.empty() && text != nullptr) {
    // An empty rule is no rule; another empty text stands for what is built in.
    const bool isEmpty = text->empty() && row.variable != nullptr;
    return {row.value, isEmpty ? otherwise.value : *text, SettingSource::Policy, {}};
  }
  if (row.variable == nullptr) return otherwise;
  if (isCleared(row.variable, policy)) return {row.value, "", SettingSource::Policy, {}};
  Setting found = fromEnvironment(row, environments);
  if (found.value == "") found = otherwise;
  found.name = row.value;
  if (!problem.empty()) found.problem = kPolicyUnusable + problem;
  return found;
}

}  // namespace

std::string withoutCredentials(std::string address) {
  const std::size_t scheme = address.find("://");
  const std::size_t begin = scheme == std::string::npos ? 0 : scheme + 3;
  const std::size_t end = address.rfind('@');
  if (end != std::string::npos && end >= begin) address.replace(begin, end - begin, "***");
  return address;
}

Setting variableInForce(const std::string& name, const Environments& environments) {
  const std::pair<const Stored<Variables>*, SettingSource> layers[] = {
      {&environments.service, SettingSource::Service}, {&environments.machine, SettingSource::Machine}};
  for (const auto& [layer, source] : layers) {
    if (const auto* const problem = problemOf(*layer)) return {name, {}, {}, problemInWords(*problem)};
    const auto* const variables = std::get_if<Variables>(layer);
    if (variables == nullptr) continue;
    if (const auto found = variables->find(name); found != variables->end()) {
      return {name, found->second, source, {}};
    }
  }
  return {name, "", SettingSource::BuiltIn, {}};
}

std::vector<Setting> settingsInForce(const StoredSettings& policy, const Environments& environments,
                                     const std::array<Setting, kPolicySettingCount>& otherwise) {
  std::vector<Setting> result;
  for (std::size_t i = 0; i < otherwise.size(); ++i) {
    Setting setting = inForce(i, policy, environments, otherwise[i]);
    const bool isAddress =
        setting.name == names::kProxyValue.narrow || setting.name == names::kAccountServiceHostValue.narrow;
    if (setting.value && isAddress) setting.value = withoutCredentials(*setting.value);
    result.push_back(std::move(setting));
  }
  return result;
}

std::string placeOf(const std::string& name, const std::vector<Setting>& settings) {
  const auto found = std::ranges::find(settings, name, &Setting::name);
  if (found != settings.end() && found->source == SettingSource::Policy) return "the policy value " + name;
  const auto row = std::ranges::find_if(policySettings(), [&](const auto& one) { return one.value == name; });
  return row != policySettings().end() && row->variable != nullptr ? row->variable : name;
}

std::optional<bool> changedSince(const std::optional<std::uint64_t>& start,
                                 const std::vector<std::optional<std::uint64_t>>& written) {
  if (!start) return std::nullopt;
  if (std::ranges::any_of(written, [&](const auto& time) { return time && *time > *start; })) return true;
  const bool isKnown = std::ranges::all_of(written, [](const auto& time) { return time.has_value(); });
  return isKnown ? std::optional(false) : std::nullopt;
}

std::string settingInWords(const std::string& name, const std::vector<Setting>& settings) {
  const auto found = std::ranges::find(settings, name, &Setting::name);
  return found == settings.end() ? "unknown" : inWords(*found);
}

std::string settingsText(const std::vector<Setting>& settings) {
  std::size_t width = 0;
  for (const Setting& setting : settings) width = std::max(width, setting.name.size());
  std::string result;
  for (const Setting& setting : settings) {
    if (!result.empty()) result += '\n';
    result += setting.name + std::string(width + 2 - setting.name.size(), ' ') + inWords(setting);
  }
  return result;
}

Json settingsArray(const std::vector<Setting>& settings) {
  Json result = Json::array();
  for (const Setting& setting : settings) {
    result.push_back({{"name", setting.name},
                      {"value", orNull(setting.value)},
                      {"source", setting.source ? Json(wordsOf(*setting.source).key) : Json(nullptr)},
                      {"problem", setting.problem.empty() ? Json(nullptr) : Json(setting.problem)}});
  }
  return result;
}

}  // namespace zarn::tool
