#include "client/tool/machine/service.h"

#include <windows.h>

#include <sddl.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <vector>

#include "client/service_process.h"
#include "client/tool/machine/environment.h"
#include "os/handles_win.h"
#include "os/process.h"
#include "os/registry.h"
#include "prefs/value_text.h"
#include "util/file_utils.h"
#include "util/path_judge.h"
#include "util/policy_settings.h"
#include "util/product_names.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

constexpr wchar_t kFoldersKey[] = LR"(Software\Microsoft\Windows\CurrentVersion\Explorer\Shell Folders)";

/// More than any environment variable or path has.
constexpr std::size_t kMostBytes = std::size_t{1} << 20;

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

/// Leaves the facts empty that cannot be had.
void readConfiguration(SC_HANDLE service, ServiceFacts& facts) {
  DWORD size = 0;
  QueryServiceConfigW(service, nullptr, 0, &size);
  if (size < sizeof(QUERY_SERVICE_CONFIGW)) return;
  // The structure's texts lie behind it, so the buffer is larger and aligned for it.
  std::vector<std::max_align_t> buffer(size / sizeof(std::max_align_t) + 1);
  auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
  if (QueryServiceConfigW(service, config, size, &size) == 0) return;
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

/// When the service last wrote its log there; 0 for never.
std::uint64_t lastWritten(const std::string& folder) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  const auto log = FileUtils::toPath(FileUtils::join(folder, names::kCurrentLog.narrow));
  if (GetFileAttributesExW(log.c_str(), GetFileExInfoStandard, &data) == 0) return 0;
  return std::uint64_t{data.ftLastWriteTime.dwHighDateTime} << 32U | data.ftLastWriteTime.dwLowDateTime;
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
