#include "client/tool/machine/checkup.h"

#include <windows.h>

#include <limits>
#include <memory>
#include <utility>

#include "client/tool/machine/authorities.h"
#include "client/tool/machine/environment.h"
#include "client/tool/machine/files.h"
#include "client/tool/machine/service.h"
#include "client/tool/machine/settings.h"
#include "http/libcurl.h"
#include "log/network_log.h"
#include "os/clock.h"
#include "os/handles_win.h"
#include "os/process.h"
#include "prefs/preferences.h"
#include "trust/account_service_host.h"
#include "update/record_folder.h"
#include "util/file_utils.h"
#include "util/host_and_port.h"
#include "util/path_judge.h"
#include "util/product_names.h"

namespace zarn::tool {
namespace {

// ---- The proxy -----------------------------------------------------------------------

std::optional<std::string> partOf(CURLU* url, CURLUPart part) {
  char* text = nullptr;
  if (curl_url_get(url, part, &text, 0) != CURLUE_OK) return std::nullopt;
  const CurlText owner(text);
  return std::string(text);
}

bool hasSignIn(CURLU* url) {
  return partOf(url, CURLUPART_USER) || partOf(url, CURLUPART_PASSWORD);
}

/// A sign-in with a slash in it ends the host too early: what is taken for the host or the port
/// then is part of the sign-in.
bool isTornApart(const std::string& address, CURLU* url) {
  return address.find('@') != std::string::npos && !hasSignIn(url);
}

/// The address as libcurl takes it apart, without its sign-in; nothing when it is none.
std::optional<std::string> proxyAddress(const std::string& text) {
  const Url url(curl_url());
  constexpr unsigned flags = CURLU_NON_SUPPORT_SCHEME | CURLU_GUESS_SCHEME;
  if (!url || curl_url_set(url.get(), CURLUPART_URL, text.c_str(), flags) != CURLUE_OK) return std::nullopt;
  const auto scheme = partOf(url.get(), CURLUPART_SCHEME);
  const auto host = partOf(url.get(), CURLUPART_HOST);
  if (!scheme || !isProxyScheme(*scheme) || !host || host->empty()) return std::nullopt;
  if (isTornApart(text, url.get())) return std::nullopt;
  const auto port = partOf(url.get(), CURLUPART_PORT);
  return *scheme + "://" + *host + (port ? ":" + *port : "") +
         (hasSignIn(url.get()) ? ", with a sign-in" : "");
}

struct ProxyInForce {
  const char* variable = "";
  std::string text;  ///< empty: there is none
};

/// As libcurl looks for that of an https address; the names' case does not matter here.
ProxyInForce proxyInForce() {
  for (const char* const variable : {names::kHttpsProxyVariable.narrow, names::kAllProxyVariable.narrow}) {
    std::string text = environmentVariable(variable).value_or("");
    if (!text.empty()) return {variable, std::move(text)};
  }
  return {};
}

// ---- What the checks are made on -----------------------------------------------------

/// Found out before the checks begin, which only read it.
struct Machine {
  Machine() { adoptServiceEnvironment(); }

  ProxyInForce proxy;
  std::vector<Setting> settings;
  Result<ServiceFacts> service;
  std::optional<std::string> tempFolder;
  std::string host, bypass;
};

std::shared_ptr<const Machine> lookAtMachine() {
  auto machine = std::make_shared<Machine>();
  machine->proxy = proxyInForce();
  machine->settings = serviceSettings();
  machine->service = queryService();
  machine->tempFolder = serviceTempFolder();
  machine->host = accountServiceHost();
  machine->bypass = environmentVariable(names::kNoProxyVariable.narrow).value_or("");
  return machine;
}

std::int64_t secondsNow() {
  return os::wallTime().seconds;
}

Finding checkProxyInForce(const Machine& machine) {
  const auto& [variable, text] = machine.proxy;
  if (text.empty()) return checkProxy({}, {});
  const std::string place = placeOf(names::kProxyValue.narrow, machine.settings);
  return checkProxy(place == names::kHttpsProxyVariable.narrow ? variable : place, text);
}

std::vector<Finding> checkSettings(const Machine& machine) {
  return {
      checkAccountService(machine.host, placeOf(names::kAccountServiceHostValue.narrow, machine.settings)),
      checkProxyInForce(machine),
      checkCollector(environmentVariable(names::kSyslogCollectorVariable.narrow),
                     environmentVariable(names::kSyslogMinutesVariable.narrow), machine.settings)};
}

/// Distinguishes a folder that this user may not ask about from one that others may write to.
Result<void> rightsOf(const std::string& folder) {
  const FileHandle opened(CreateFileW(
      FileUtils::toPath(folder).c_str(), READ_CONTROL, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  if (!opened) return lastFailure();
  return checkRecordFolder(folder);
}

/// Free for the service in the folder, or where it would be made.
Result<std::uint64_t> roomIn(const std::string& folder) {
  ULARGE_INTEGER free{};
  const auto path = FileUtils::toPath(folder);
  const auto existing = mayBeFolder(folder) ? path : path.root_path();
  if (GetDiskFreeSpaceExW(existing.c_str(), &free, nullptr, nullptr) == 0) return lastFailure();
  return free.QuadPart;
}

/// The values that the service may find unusable, and what it then does.
bool refusesEverything(const PolicySetting& row) {
  constexpr std::string_view proxy = names::kProxyValue.narrow;
  constexpr std::string_view host = names::kAccountServiceHostValue.narrow;
  return row.variable == nullptr || row.value == proxy || row.value == host;
}

/// Of a bundle that every rule lets pass, unless a rule or its state cannot be read.
PolicyResult judgeBestBundle(const StoredPolicy& rules, const UpdatePolicy& builtIn) {
  const auto* const product = std::get_if<std::string>(&rules.requiredProduct);
  constexpr std::uint16_t most = std::numeric_limits<std::uint16_t>::max();
  return judgeByPolicy(rules, builtIn, [&] {
    const std::string named = product != nullptr ? *product : builtIn.requiredProduct;
    return FileVersion{named, "", ProductVersion{{most, most, most, most}}};
  });
}

void beginConfiguration(SideBySide& checks, const std::shared_ptr<const Machine>& machine) {
  using Findings = std::vector<Finding>;
  checks.begin("account service", kCheckLimit, [=] { return checkSettings(*machine); });
  checks.begin("authorities", kCheckLimit, [=]() -> Findings {
    const std::int64_t now = secondsNow();
    return {judgeAuthorities(readAuthorities(serviceResources(machine->service), isListChosen(), now), now)};
  });
  checks.begin("temp folder", kCheckLimit, [=] { return checkTemp(machine->tempFolder); });
  checks.begin("record folder", kCheckLimit, []() -> Findings {
    const std::string folder = recordFolderPath();
    return {judgeRecordFolder(folder, checkRecordFolder(folder))};
  });
  checks.begin("policy", kCheckLimit, []() -> Findings {
    return {checkPolicy(readPolicySettings(), readStoredPolicy(), builtInPolicy())};
  });
}

void beginService(SideBySide& checks, const std::shared_ptr<const Machine>& machine, Network network) {
  const auto begin = [&](const char* name, const std::function<Finding()>& check) {
    checks.begin(name, kCheckLimit, [=]() -> std::vector<Finding> {
      return {network == Network::Use ? check() : asWarning(check())};
    });
  };
  begin("service", [=] { return judgeService(machine->service); });
  begin("endpoint", checkEndpoint);
}

void beginNetwork(SideBySide& checks, const std::shared_ptr<const Machine>& machine) {
  using Findings = std::vector<Finding>;
  checks.begin("name resolution", kCheckLimit, [=]() -> Findings {
    return {checkNames(machine->host, machine->proxy.text, machine->bypass)};
  });
  checks.begin("approved certificates", kCheckLimit, [=]() -> Findings {
    const std::string list = FileUtils::certificateFileIn(serviceResources(machine->service));
    const ListAnswer answer = askAccountService(machine->host, list);
    return {judgeList(answer), judgeClock(answer)};
  });
  checks.begin("revocation", kCheckLimit, [=]() -> Findings {
    const bool isKnown = machine->service && !machine->service->program.empty();
    return {checkRevocation(isKnown ? machine->service->program : os::executablePath().value_or(""))};
  });
}

}  // namespace

Finding checkAccountService(const std::string& host, const std::string& place) {
  const bool ok = isHostWithOptionalPort(host);
  return {"account service", ok, withoutCredentials(host),
          ok ? "" : "Set " + place + " to a host or host:port, or to nothing for the one built in"};
}

Finding checkProxy(const std::string& place, const std::string& text) {
  if (text.empty()) return {"proxy", true, "none", ""};
  const auto address = proxyAddress(text);
  if (address) return {"proxy", true, place + ": " + *address, ""};
  // The text is not shown: where its password stands cannot be told.
  return {
      "proxy", false, place + ": no address of a proxy",
      "Set it to http://HOST:PORT, or with https, socks4, socks4a, socks5 or socks5h in front; signs such as "
      "/ and @ in a password are written with %"};
}

// Only a warning: without the collector the service does all that it is for.
Finding checkCollector(const std::optional<std::string>& collector, const std::optional<std::string>& minutes,
                       const std::vector<Setting>& settings) {
  if (!collector && !minutes) return {"syslog collector", true, "none", ""};
  const auto place = parseCollector(collector.value_or(""));
  const auto duration = parseCollectorMinutes(minutes.value_or(""));
  const std::string found = collector.value_or("") + " for " + minutes.value_or("") + " minutes";
  std::string advice;
  if (!place) {
    advice = "Set " + placeOf(names::kSyslogCollectorValue.narrow, settings) + " to host:port";
  } else if (!duration) {
    advice = "Set " + placeOf(names::kSyslogMinutesValue.narrow, settings) + " to a positive number";
  }
  return {"syslog collector", true, found, advice.empty() ? "" : advice + "; no lines are sent"};
}

Finding checkTempFolder(const std::optional<std::string>& named) {
  if (!named) return {"temp folder", true, "not known: an administrator's rights are needed to read it", ""};
  const std::string& folder = *named;
  if (folder.empty() || judgePath(folder) != PathKind::LocalFolder) {
    return {"temp folder", false, folder.empty() ? "none" : folder,
            "Set TMP in the service's own environment to a folder on a drive of this machine"};
  }
  const auto path = FileUtils::toPath(folder);
  if (!mayBeFolder(folder)) {
    const bool canBeMade = !FileUtils::exists(folder) && mayBeFolder(FileUtils::toUtf8(path.parent_path()));
    return {"temp folder", canBeMade, folder + ": not there",
            "Make the folder, for the service and administrators alone; without it another one is used"};
  }
  if (folder.find(' ') == std::string::npos) return {"temp folder", true, folder, ""};
  return {"temp folder", true, folder,
          "Use a path without blanks: it is the first part of the installers' command line, which has no "
          "quotation "
          "marks"};
}

std::vector<Finding> checkTemp(const std::optional<std::string>& folder) {
  std::vector<Finding> findings = {checkTempFolder(folder)};
  if (!folder || folder->empty() || judgePath(*folder) != PathKind::LocalFolder) return findings;
  if (mayBeFolder(*folder)) findings.push_back(judgeTempRights(*folder, rightsOf(*folder)));
  findings.push_back(judgeRoom(*folder, roomIn(*folder)));
  return findings;
}

Finding checkPolicy(const StoredSettings& stored, const StoredPolicy& rules, const UpdatePolicy& builtIn) {
  Finding finding{"policy", true, "", ""};
  const auto isDenied = [](const auto& value) {
    return problemOf(value) != nullptr && problemOf(value)->isDenied;
  };
  const auto add = [&finding](const std::string& words) {
    finding.found += (finding.found.empty() ? "" : "; ") + words;
  };
  for (std::size_t i = 0; i < stored.size(); ++i) {
    const PolicySetting& row = policySettings()[i];
    if (std::holds_alternative<std::monostate>(stored[i])) continue;
    const std::string problem = policyProblem(row, stored[i]);
    add(std::string(row.value) + (problem.empty() ? "" : ": " + problem));
    if (problem.empty() || isDenied(stored[i])) continue;
    finding.advice = "Set the policy anew, or delete the value";
    finding.ok = finding.ok && !refusesEverything(row);
  }
  const bool isKnown =
      !isDenied(rules.requiredProduct) && !isDenied(rules.refuseOlder) && !isDenied(rules.highestInstalled);
  const PolicyResult best = judgeBestBundle(rules, builtIn);
  if (finding.ok && isKnown && !best.isAllowed()) {
    add(best.sentence());
    finding.ok = false;
    finding.advice = "Mend what RefuseOlder remembers, HighestInstalledVersion, or delete it";
  }
  if (finding.found.empty()) finding.found = "none";
  return finding;
}

std::string hostOf(const std::string& address) {
  const Url url(curl_url());
  constexpr unsigned flags = CURLU_NON_SUPPORT_SCHEME | CURLU_GUESS_SCHEME;
  if (!url || curl_url_set(url.get(), CURLUPART_URL, address.c_str(), flags) != CURLUE_OK) return {};
  if (isTornApart(address, url.get())) return {};
  std::string host = partOf(url.get(), CURLUPART_HOST).value_or("");
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  return host;
}

std::vector<Finding> checkConfiguration() {
  SideBySide checks;
  beginConfiguration(checks, lookAtMachine());
  return checks.collect();
}

std::vector<Finding> checkMachine(Network network) {
  // The service's settings are its account's; this user's must not steer what is worked out here.
  Preferences::useTestStore(true);
  initializeCurl();  // changes the environment, so before the first thread
  const auto machine = lookAtMachine();
  SideBySide checks;
  beginConfiguration(checks, machine);
  beginService(checks, machine, network);
  if (network == Network::Use) beginNetwork(checks, machine);
  return checks.collect();
}

}  // namespace zarn::tool
