// Names that the service, zarn-update and the package must agree on, each as
// UTF-8 and as UTF-16: names::kService.narrow, names::kService.wide. Also which files of
// a Logs folder are the service's, and which are logs that installers leave.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace zarn::names {

template <std::size_t size>
struct Name {
  char narrow[size]{};
  wchar_t wide[size]{};

  consteval explicit Name(const char (&text)[size]) {
    for (std::size_t i = 0; i < size; ++i) {
      narrow[i] = text[i];
      wide[i] = static_cast<wchar_t>(text[i]);
    }
  }
};

inline constexpr Name kService("ZarnUpdateService");
inline constexpr Name kDisplayName("Zarn Update Service");
/// The source of its events in the log "Application".
inline constexpr Name kEventSource("Zarn Update Service");
/// The service's private copy of a bundle, in its temp folder.
inline constexpr Name kStagedInstaller("ZarnMediaServerUpdate.exe");

/// The service's part of the registry, below the root of its account.
inline constexpr Name kPreferencesKey("Software\\Zarn, Inc.\\Zarn Media Server");
/// A preference there: the folder that the media server chose for the product's folder.
inline constexpr Name kLocalAppDataPathValue("LocalAppDataPath");
inline constexpr Name kDefaultPreferencesVariable("ZARN_MEDIA_SERVER_DEFAULT_PREFERENCES");
inline constexpr Name kAccountServiceHostVariable("ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST");
inline constexpr Name kEnforceRedirectionTrustVariable("ZARN_MEDIA_SERVER_ENFORCE_REDIRECTION_TRUST");
inline constexpr Name kSyslogCollectorVariable("ZARN_MEDIA_SERVER_SYSLOG_COLLECTOR");
inline constexpr Name kSyslogMinutesVariable("ZARN_MEDIA_SERVER_SYSLOG_MINUTES");
/// Fixes the log's threshold, whatever the preferences say.
inline constexpr Name kLogLevelVariable("ZARN_MEDIA_SERVER_LOG_LEVEL");
/// As libcurl reads them; Windows takes no account of capital letters in names.
inline constexpr Name kHttpsProxyVariable("HTTPS_PROXY");
inline constexpr Name kAllProxyVariable("ALL_PROXY");
inline constexpr Name kNoProxyVariable("NO_PROXY");
/// "1": the application data may lie on a share.
inline constexpr Name kAllowSharesVariable("ZARN_MEDIA_SERVER_ALLOW_SHARES");

/// Below HKEY_LOCAL_MACHINE: an administrator's policy (util/policy_settings.h), and what
/// the service remembers.
inline constexpr Name kPolicyKey("Software\\Policies\\Zarn, Inc.\\Zarn Update Service");
inline constexpr Name kAccountServiceHostValue("AccountServiceHost");
inline constexpr Name kProxyValue("Proxy");
inline constexpr Name kProxyBypassValue("ProxyBypass");
inline constexpr Name kSyslogCollectorValue("SyslogCollector");
inline constexpr Name kSyslogMinutesValue("SyslogMinutes");
inline constexpr Name kLogLevelValue("LogLevel");
inline constexpr Name kRequiredProductValue("RequiredProduct");
inline constexpr Name kRefuseOlderValue("RefuseOlder");
inline constexpr Name kServiceKey("Software\\Zarn, Inc.\\Zarn Update Service");
inline constexpr Name kHighestInstalledVersionValue("HighestInstalledVersion");
/// What setup was told of the list of authorities: nothing or "default" for the shipped one.
inline constexpr Name kAuthoritiesValue("CaBundle");

/// The folder beside the program, and in it the authorities that may vouch for the account
/// service, as shipped and as an administrator chose them instead.
inline constexpr Name kResources("Resources");
inline constexpr Name kShippedAuthorities("cacert.pem");
inline constexpr Name kChosenAuthorities("cacert-chosen.pem");

/// Where the logs lie: LOCAL-APPLICATION-DATA\\Zarn Media Server\\Logs.
inline constexpr Name kProductFolder("Zarn Media Server");
inline constexpr Name kLogs("Logs");
inline constexpr Name kInstallerLogs("Installer Logs");
inline constexpr Name kLog("Zarn Update Service");
inline constexpr Name kCurrentLog("Zarn Update Service.log");
inline constexpr Name kHistory("Update History.jsonl");
inline constexpr Name kEarlierHistory("Update History.1.jsonl");
/// Says why the log could not be started.
inline constexpr Name kStartupCrashLog("Startup Crash.log");

/// Where the record that counts lies, in %ProgramData%; beside the log is a copy.
inline constexpr Name kRecordFolder("Zarn Update Service");
/// The requests for which no installer ran.
inline constexpr Name kRefused("Refused Requests.jsonl");
inline constexpr Name kEarlierRefused("Refused Requests.1.jsonl");
/// There as long as an install request is worked on.
inline constexpr Name kInstalling("Installing.json");
/// What the record folder's files lie in among collected logs.
inline constexpr Name kCollectedRecord("Record");

}  // namespace zarn::names

namespace zarn {

// The media server writes to the Logs folder, too. Names of files in it are given without
// their folder, in UTF-8 or UTF-16, and are compared letter for letter.

namespace detail {
template <typename Char>
constexpr bool startsWith(std::basic_string_view<Char> name, std::string_view wanted) {
  return name.size() >= wanted.size() &&
         std::equal(wanted.begin(), wanted.end(), name.begin(),
                    [](char letter, Char given) { return given == static_cast<Char>(letter); });
}

template <typename Char>
constexpr bool endsWith(std::basic_string_view<Char> name, std::string_view wanted) {
  return name.size() >= wanted.size() && startsWith(name.substr(name.size() - wanted.size()), wanted);
}
}  // namespace detail

/// What the service collects of installers into "Installer Logs".
template <typename Char>
[[nodiscard]] constexpr bool isInstallerLogName(std::basic_string_view<Char> name) {
  return (detail::startsWith(name, names::kProductFolder.narrow) ||
          detail::startsWith(name, "dd_vcredist")) &&
         detail::endsWith(name, ".log");
}

/// The service's logs, its history and the note of a failed start.
template <typename Char>
[[nodiscard]] constexpr bool isServiceLogName(std::basic_string_view<Char> name) {
  constexpr std::string_view crashLog = names::kStartupCrashLog.narrow;
  return (detail::startsWith(name, "Zarn Update Service.") && detail::endsWith(name, ".log")) ||
         (detail::startsWith(name, "Update History.") && detail::endsWith(name, ".jsonl")) ||
         (name.size() == crashLog.size() && detail::startsWith(name, crashLog));
}
static_assert(isServiceLogName(std::string_view(names::kCurrentLog.narrow)) &&
              isServiceLogName(std::string_view(names::kHistory.narrow)) &&
              isServiceLogName(std::string_view(names::kEarlierHistory.narrow)));

}  // namespace zarn
