#include "util/policy_settings.h"

#include <algorithm>
#include <limits>

#include "os/process.h"
#include "os/text.h"
#include "util/host_and_port.h"

namespace zarn {
namespace {

/// No host, no number, no "host:port".
constexpr char kNothingUsable[] = "(unusable policy)";
/// libcurl refuses a scheme that it does not know, where it would take other texts for
/// the name of a host.
constexpr char kNoProxy[] = "unusable-policy://none";

bool isPrintableAscii(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

bool isOneWord(std::string_view text) {
  return isPrintableAscii(text) && text.find(' ') == std::string_view::npos;
}

/// Nothing that libcurl cannot take apart: its error text would show the whole address, with
/// the password, in the log. Of addresses in brackets it knows better which are none.
bool isProxyAddress(std::string_view text) {
  if (!isOneWord(text)) return false;
  if (const std::size_t end = text.find("://"); end != std::string_view::npos) {
    if (!isProxyScheme(text.substr(0, end))) return false;
    text.remove_prefix(end + 3);
  }
  if (const std::size_t at = text.rfind('@'); at != std::string_view::npos) {
    const std::string_view signIn = text.substr(0, at);
    // With a control character in it libcurl goes on without any proxy.
    for (const char* const control : {"%0", "%1"}) {
      if (signIn.find(control) != std::string_view::npos) return false;
    }
    if (signIn.find_first_of("/?#@\\") != std::string_view::npos) return false;
    text.remove_prefix(at + 1);
    if (text.starts_with('[')) return false;
  }
  if (text.ends_with('/')) text.remove_suffix(1);
  return isHostWithOptionalPort(text);
}

std::optional<LogLevel> logLevelOf(std::string_view name) {
  if (os::equalsIgnoringCase(name, "info")) return LogLevel::Info;
  if (os::equalsIgnoringCase(name, "debug")) return LogLevel::Debug;
  if (os::equalsIgnoringCase(name, "verbose")) return LogLevel::Verbose;
  return std::nullopt;
}

bool isLogLevel(std::string_view text) {
  return logLevelOf(text).has_value();
}

constexpr std::uint32_t kAnyNumber = std::numeric_limits<std::uint32_t>::max();

constexpr std::array<PolicySetting, kPolicySettingCount> makeSettings() {
  using enum PolicyKind;
  // A host name of 253 characters and ":65535".
  PolicySetting host{names::kAccountServiceHostValue, Text, 0, 259};
  host.variable = names::kAccountServiceHostVariable.narrow;
  host.isUsable = isHostWithOptionalPort;
  host.whenUnusable = kNothingUsable;

  // libcurl asks for "https_proxy" in small and in capital letters, which on Windows is one
  // variable, and for "all_proxy" when there is none. The exceptions go with the proxy: those
  // of another one are not this one's.
  PolicySetting proxy{names::kProxyValue, Text, 0, 2047};
  proxy.variable = names::kHttpsProxyVariable.narrow;
  proxy.cleared = {names::kAllProxyVariable.narrow, names::kNoProxyVariable.narrow};
  proxy.isUsable = isProxyAddress;
  proxy.whenUnusable = kNoProxy;

  // Unusable, there are no exceptions.
  PolicySetting bypass{names::kProxyBypassValue, Text, 0, 2047};
  bypass.variable = names::kNoProxyVariable.narrow;
  bypass.isUsable = isPrintableAscii;
  bypass.whenUnusable = "";

  // Whose lines they are and for how long is said in one place.
  PolicySetting collector{names::kSyslogCollectorValue, Text, 0, 259};
  collector.variable = names::kSyslogCollectorVariable.narrow;
  collector.cleared = {names::kSyslogMinutesVariable.narrow};
  collector.isUsable = isOneWord;
  collector.whenUnusable = kNothingUsable;

  PolicySetting minutes{names::kSyslogMinutesValue, Number, 1, std::numeric_limits<std::int32_t>::max()};
  minutes.variable = names::kSyslogMinutesVariable.narrow;
  minutes.whenUnusable = kNothingUsable;

  PolicySetting level{names::kLogLevelValue, Text, 0, 7};
  level.variable = names::kLogLevelVariable.narrow;
  level.isUsable = isLogLevel;

  return {host,
          proxy,
          bypass,
          collector,
          minutes,
          level,
          PolicySetting{names::kRequiredProductValue, Text, 0, kLongestProductName},
          PolicySetting{names::kRefuseOlderValue, Number, 0, kAnyNumber}};
}

}  // namespace

const std::array<PolicySetting, kPolicySettingCount>& policySettings() noexcept {
  static constexpr auto settings = makeSettings();
  return settings;
}

std::string policyProblem(const PolicySetting& setting, const Stored<std::string>& stored) {
  if (const auto* problem = problemOf(stored)) return problem->reason;
  const auto* const text = std::get_if<std::string>(&stored);
  if (text == nullptr) return {};
  if (setting.kind == PolicyKind::Number) {
    const auto number = os::parseNumber<std::uint32_t>(*text);
    if (!number || *number < setting.least || *number > setting.most) return "the number is out of range";
    return {};
  }
  const bool isWrong = !text->empty() && setting.isUsable != nullptr && !setting.isUsable(*text);
  return isWrong ? "it does not have the form that is asked for" : "";
}

PolicyEffect effectOf(const StoredSettings& stored) {
  PolicyEffect effect;
  for (std::size_t i = 0; i < stored.size(); ++i) {
    const PolicySetting& setting = policySettings()[i];
    if (setting.variable == nullptr || std::holds_alternative<std::monostate>(stored[i])) continue;
    const std::string problem = policyProblem(setting, stored[i]);
    if (!problem.empty()) {
      effect.warnings.push_back("The policy value " + std::string(setting.value) +
                                " cannot be used: " + problem);
      if (setting.whenUnusable == nullptr) continue;
    }
    effect.inForce.emplace_back(setting.value);
    for (const char* const other : setting.cleared) {
      if (other != nullptr) effect.changes.push_back({other, {}});
    }
    effect.changes.push_back(
        {setting.variable, problem.empty() ? std::get<std::string>(stored[i]) : setting.whenUnusable});
  }
  return effect;
}

std::optional<LogLevel> chosenLogLevel() {
  return logLevelOf(environmentVariable(names::kLogLevelVariable.narrow).value_or(""));
}

}  // namespace zarn
