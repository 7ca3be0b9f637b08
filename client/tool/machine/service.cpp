#include "client/tool/machine/service.h"

#include <windows.h>

#include <sddl.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <vector>

#include "client/service_process.h"
#include "client/tool/machine/environment.h"
#include "client/tool/machine/files.h"
#include "os/handles_win.h"
#include "os/process.h"
#include "os/registry.h"
#include "prefs/value_text.h"
#include "util/file_utils.h"
#include "util/held_folder.h"
#include "util/path_judge.h"
#include "util/policy_settings.h"
#include "util/product_names.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

constexpr wchar_t kFoldersKey[] = LR"(Software\Microsoft\Windows\CurrentVersion\Explorer\Shell Folders)";

/// More than any environment variable or path has.
constexpr std::size_t kMostBytes = std::size_t{1} << 20;

/// A log's first lines; those before the banner are few.
constexpr std::int64_t kMostBannerBytes = std::int64_t{4} << 10;

std::uint64_t fileTime(const FILETIME& time) {
  return std::uint64_t{time.dwHighDateTime} << 32U | time.dwLowDateTime;
}

// ---- The service control manager -----------------------------------------------

std::string stateName(DWORD state) {
  switch (state) {
    case SERVICE_STOPPED:
      return "stopped";
    case SERVICE_START_PENDING:
      return "starting";
    case SERVICE_STOP_PENDING:
      return "stopping";
    case SERVICE_RUNNING:
      return "running";
    case SERVICE_CONTINUE_PENDING:
    case SERVICE_PAUSE_PENDING:
    case SERVICE_PAUSED:
      return "paused";
    default:
      return "in state " + std::to_string(state);
  }
}

/// A structure with what it points to behind it; empty when it cannot be had. `query` is
/// called with a buffer and its size, without one for the size alone.
template <typename Structure, typename Query>
class Queried {
 public:
  explicit Queried(const Query& query) {
    DWORD size = 0;
    query(nullptr, 0, &size);
    if (size < sizeof(Structure)) return;
    buffer_.resize(size / sizeof(std::max_align_t) + 1);
    if (query(reinterpret_cast<BYTE*>(buffer_.data()), size, &size) == 0) buffer_.clear();
  }
  [[nodiscard]] const Structure* get() const {
    return buffer_.empty() ? nullptr : reinterpret_cast<const Structure*>(buffer_.data());
  }

 private:
  std::vector<std::max_align_t> buffer_;  // aligned for every structure
};

template <typename Structure, typename Query>
Queried<Structure, Query> queried(const Query& query) {
  return Queried<Structure, Query>(query);
}

std::string actionName(SC_ACTION_TYPE type) {
  switch (type) {
    case SC_ACTION_RESTART:
      return "restart";
    case SC_ACTION_REBOOT:
      return "reboot";
    case SC_ACTION_RUN_COMMAND:
      return "program";
    default:
      return "nothing";
  }
}

/// Nothing under systems that do not tell.
std::optional<Recovery> readRecovery(SC_HANDLE service) {
  const auto actions = queried<SERVICE_FAILURE_ACTIONSW>([&](BYTE* buffer, DWORD size, DWORD* needed) {
    return QueryServiceConfig2W(service, SERVICE_CONFIG_FAILURE_ACTIONS, buffer, size, needed);
  });
  if (actions.get() == nullptr) return std::nullopt;
  Recovery recovery;
  recovery.resetSeconds = actions.get()->dwResetPeriod;
  for (DWORD i = 0; actions.get()->lpsaActions != nullptr && i < actions.get()->cActions; ++i) {
    const SC_ACTION& action = actions.get()->lpsaActions[i];
    recovery.steps.push_back({actionName(action.Type), action.Delay});
  }
  return recovery;
}

/// In the words of the package's START.
std::string startName(SC_HANDLE service, DWORD type) {
  if (type == SERVICE_DEMAND_START) return "demand";
  if (type == SERVICE_DISABLED) return "disabled";
  if (type != SERVICE_AUTO_START) return {};
  SERVICE_DELAYED_AUTO_START_INFO delayed{};
  DWORD size = 0;
  const bool isKnown = QueryServiceConfig2W(service, SERVICE_CONFIG_DELAYED_AUTO_START_INFO,
                                            reinterpret_cast<BYTE*>(&delayed), sizeof(delayed), &size) != 0;
  return isKnown && delayed.fDelayedAutostart != 0 ? "delayed-auto" : "auto";
}

/// Leaves the facts empty that cannot be had.
void readConfiguration(SC_HANDLE service, ServiceFacts& facts) {
  facts.recovery = readRecovery(service);
  const auto read = queried<QUERY_SERVICE_CONFIGW>([&](BYTE* buffer, DWORD size, DWORD* needed) {
    return QueryServiceConfigW(service, reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer), size, needed);
  });
  const QUERY_SERVICE_CONFIGW* const config = read.get();
  if (config == nullptr) return;
  facts.start = startName(service, config->dwStartType);
  if (config->lpBinaryPathName != nullptr) {
    facts.program = programOfCommandLine(StringUtils::utf16to8(config->lpBinaryPathName));
  }
  if (config->lpServiceStartName != nullptr)
    facts.account = StringUtils::utf16to8(config->lpServiceStartName);
}

// ---- The registry ------------------------------------------------------------------

/// A text value (REG_SZ alone, as the service reads its preferences).
std::optional<std::string> registryText(HKEY root, const std::wstring& path, const wchar_t* name) {
  const auto key = os::openRegistryKey(root, path.c_str(), KEY_QUERY_VALUE);
  if (!key) return std::nullopt;
  const auto data = os::readRegistryValue(key->get(), name, kMostBytes);
  if (!data || data->type != REG_SZ) return std::nullopt;
  return StringUtils::utf16to8(data->text());
}

// ---- The log folder ----------------------------------------------------------------

/// The security identifier of a service's account as text; empty when it has none.
std::string identifierOf(std::string account) {
  if (account.empty() || account == "LocalSystem") return "S-1-5-18";
  if (account.starts_with(".\\")) account.erase(0, 2);
  const std::wstring name = StringUtils::utf8to16(account);
  std::array<std::byte, SECURITY_MAX_SID_SIZE> identifier{};
  std::array<wchar_t, 256> domain{};
  auto size = static_cast<DWORD>(identifier.size());
  auto domainSize = static_cast<DWORD>(domain.size());
  SID_NAME_USE use{};
  LPWSTR text = nullptr;
  if (LookupAccountNameW(nullptr, name.c_str(), identifier.data(), &size, domain.data(), &domainSize, &use) ==
          0 ||
      ConvertSidToStringSidW(identifier.data(), &text) == 0) {
    return {};
  }
  const LocalMemory owner(text);
  return StringUtils::utf16to8(text);
}

std::string defaultAppDataPath() {
  const QueryString overrides(environmentVariable(names::kDefaultPreferencesVariable.narrow).value_or(""));
  const std::string* const path = overrides.find(names::kLocalAppDataPathValue.narrow);
  return path == nullptr ? std::string() : *path;
}

/// Whether the service would use the path. What only this user may not look at counts.
bool isUsed(const std::string& path, const std::vector<std::string>& ownFolders) {
  const PathKind kind = judgeAppDataPath(path, ownFolders);
  return kind == PathKind::Unreachable || isUsable(kind);
}

/// As the service derives it, from its account's part of the registry. Empty when
/// nothing says where it is.
std::string logFolder(HKEY root, const std::wstring& prefix, const std::string& localAppData,
                      const std::vector<std::string>& ownFolders) {
  // A stored value wins over the override, an empty one too.
  const auto stored =
      registryText(root, prefix + names::kPreferencesKey.wide, names::kLocalAppDataPathValue.wide);
  std::string base = stored ? *stored : defaultAppDataPath();
  if (base.empty() || !isUsed(base, ownFolders)) base = localAppData;
  if (base.empty()) return base;
  return FileUtils::join(FileUtils::join(base, names::kProductFolder.narrow), names::kLogs.narrow);
}

/// LocalSystem's local application data; empty when the system does not say where it is.
std::string localSystemData() {
  std::wstring system(MAX_PATH, L'\0');
  const UINT length = GetSystemDirectoryW(system.data(), MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return {};
  system.resize(length);
  return StringUtils::utf16to8(system + LR"(\config\systemprofile\AppData\Local)");
}

/// The folder's real name when it has logs of the service; empty otherwise.
std::string folderWithLogs(const std::string& folder) {
  const auto held =
      FileUtils::HeldFolder::hold(folder, FileUtils::Links::Refuse, FileUtils::OwnPlaces::Allow);
  if (!held) return {};
  const auto files = filesIn(*held);
  const auto isLog = [](const std::string& name) { return isServiceLogName(std::string_view(name)); };
  return files && std::ranges::any_of(*files, isLog) ? held->path() : std::string();
}

/// When the service last wrote its log there; 0 for never.
std::uint64_t lastWritten(const std::string& folder) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  const auto log = FileUtils::toPath(FileUtils::join(folder, names::kCurrentLog.narrow));
  if (GetFileAttributesExW(log.c_str(), GetFileExInfoStandard, &data) == 0) return 0;
  return fileTime(data.ftLastWriteTime);
}

}  // namespace

Result<ServiceFacts> queryService() {
  const auto service = client::openService(SERVICE_QUERY_STATUS | SERVICE_QUERY_CONFIG);
  if (!service) return failure(service.error());
  const auto status = client::queryProcess(*service);
  if (!status) return failure(status.error());
  ServiceFacts facts;
  facts.state = stateName(status->dwCurrentState);
  facts.running = status->dwCurrentState == SERVICE_RUNNING;
  facts.processId = status->dwProcessId;
  facts.exitCode = status->dwWin32ExitCode;
  readConfiguration(service->get(), facts);
  return facts;
}

void adoptServiceEnvironment() {
  if (queryService()) adoptVariables();
  // As the service does it: a process that could not would show what is not so.
  const auto policy = applyPolicySettings();
  if (!policy) throw std::runtime_error("the policy's settings could not be applied");
}

std::optional<std::uint64_t> processStart(std::uint32_t processId) {
  const KernelHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
  FILETIME start{}, other{};
  if (!process || GetProcessTimes(process.get(), &start, &other, &other, &other) == 0) return std::nullopt;
  return fileTime(start);
}

std::optional<std::string> versionRunning(const ServiceFacts& service, const std::string& logs) {
  const auto start = service.running ? processStart(service.processId) : std::nullopt;
  if (!start || lastWritten(logs) < *start) return std::nullopt;
  const auto head = readHead(logs, names::kCurrentLog.narrow, kMostBannerBytes);
  return head ? versionOfBanner(*head) : std::nullopt;
}

std::string serviceResources(const Result<ServiceFacts>& service) {
  if (!service || service->program.empty()) return FileUtils::resourcesDirectory();
  const auto folder = FileUtils::toPath(service->program).parent_path();
  return FileUtils::join(FileUtils::toUtf8(folder), names::kResources.narrow);
}

std::wstring serviceAccountKey() {
  const auto service = queryService();
  return StringUtils::utf8to16(identifierOf(service ? service->account : "")) + L"\\";
}

std::vector<std::string> applicationDataFolders() {
  adoptServiceEnvironment();
  const auto service = queryService();
  const std::wstring user = serviceAccountKey();
  const auto own = service ? ownFoldersOf(service->program) : ownFolders();
  std::vector<std::string> result;
  const auto add = [&](std::string folder) {
    if (!folder.empty() && std::ranges::find(result, folder) == result.end())
      result.push_back(std::move(folder));
  };
  for (const auto& [root, prefix] : {std::pair(HKEY_USERS, user), {HKEY_CURRENT_USER, std::wstring()}}) {
    const auto stored =
        registryText(root, prefix + names::kPreferencesKey.wide, names::kLocalAppDataPathValue.wide);
    std::string chosen = stored ? *stored : defaultAppDataPath();
    if (isUsable(judgeAppDataPath(chosen, own))) add(std::move(chosen));
  }
  add(registryText(HKEY_USERS, user + kFoldersKey, L"Local AppData").value_or(""));
  add(localSystemData());
  add(FileUtils::applicationDataDirectory(false, false));
  return result;
}

std::vector<std::string> earlierLogFolders(const std::string& current) {
  // By their real names: two paths may lead to one folder.
  std::vector<std::string> seen = {folderWithLogs(current)};
  std::vector<std::string> result;
  for (const std::string& data : applicationDataFolders()) {
    const std::string folder =
        FileUtils::join(FileUtils::join(data, names::kProductFolder.narrow), names::kLogs.narrow);
    std::string real = folderWithLogs(folder);
    if (real.empty() || std::ranges::find(seen, real) != seen.end()) continue;
    seen.push_back(std::move(real));
    result.push_back(folder);
  }
  return result;
}

std::string serviceLogFolder(const std::string& given) {
  if (!given.empty()) return given;
  adoptServiceEnvironment();
  const auto service = queryService();
  const std::wstring user = serviceAccountKey();
  const auto own = service ? ownFoldersOf(service->program) : ownFolders();
  const std::string ofService = logFolder(
      HKEY_USERS, user, registryText(HKEY_USERS, user + kFoldersKey, L"Local AppData").value_or(""), own);
  const std::string ofUser =
      logFolder(HKEY_CURRENT_USER, L"", FileUtils::applicationDataDirectory(false, false), own);
  return ofService.empty() || lastWritten(ofUser) > lastWritten(ofService) ? ofUser : ofService;
}

}  // namespace zarn::tool
