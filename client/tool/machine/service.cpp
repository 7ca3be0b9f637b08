#include "client/tool/machine/service.h"

#include <windows.h>

#include <sddl.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "os/handles_win.h"
#include "os/process.h"
#include "os/registry.h"
#include "os/text.h"
#include "prefs/value_text.h"
#include "util/file_utils.h"
#include "util/path_judge.h"
#include "util/product_names.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

constexpr wchar_t kServicesKey[] = LR"(SYSTEM\CurrentControlSet\Services\)";
constexpr wchar_t kMachineEnvironmentKey[] =
    LR"(SYSTEM\CurrentControlSet\Control\Session Manager\Environment)";
constexpr wchar_t kFoldersKey[] = LR"(Software\Microsoft\Windows\CurrentVersion\Explorer\Shell Folders)";

/// More than any environment variable or path has.
constexpr std::size_t kMostBytes = std::size_t{1} << 20;

struct EnvironmentBlockTraits {
  using Handle = LPWCH;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle block) noexcept { FreeEnvironmentStringsW(block); }
};
using EnvironmentBlock = ScopedHandle<EnvironmentBlockTraits>;

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

// ---- The environment -------------------------------------------------------------

/// "NAME=TEXT". A name may begin with the sign, as those of the drives' current folders do.
struct Assignment {
  std::wstring name;
  std::wstring text;
};

std::optional<Assignment> parseAssignment(const std::wstring& whole) {
  const std::size_t sign = whole.find(L'=', 1);
  if (sign == std::wstring::npos) return std::nullopt;
  return Assignment{whole.substr(0, sign), whole.substr(sign + 1)};
}

/// Texts that follow one another, each with a zero character at its end; an empty one is the last.
std::vector<std::wstring> splitTexts(const wchar_t* text) {
  std::vector<std::wstring> result;
  for (; *text != L'\0'; text += result.back().size() + 1) result.emplace_back(text);
  return result;
}

/// What decides on a bundle; not TEMP and its kin, which are the service's alone.
bool concernsDecisions(const std::wstring& name) {
  constexpr std::string_view prefix = "ZARN_MEDIA_SERVER_";
  constexpr std::string_view suffix = "_PROXY";
  static_assert(std::string_view(names::kAccountServiceHostVariable.narrow).starts_with(prefix));
  const std::string text = StringUtils::utf16to8(name);
  const std::string_view begin = std::string_view(text).substr(0, prefix.size());
  const std::string_view end =
      std::string_view(text).substr(text.size() - std::min(text.size(), suffix.size()));
  return os::equalsIgnoringCase(begin, prefix) || os::equalsIgnoringCase(end, suffix);
}

/// This user's variables must not stand in for those that the service has not.
void forgetOwnVariables() {
  const EnvironmentBlock block(GetEnvironmentStringsW());
  if (!block) return;
  for (const std::wstring& variable : splitTexts(block.get())) {
    const auto assignment = parseAssignment(variable);
    if (assignment && concernsDecisions(assignment->name)) {
      SetEnvironmentVariableW(assignment->name.c_str(), nullptr);
    }
  }
}

void adopt(const Assignment& assignment) {
  if (concernsDecisions(assignment.name)) {
    SetEnvironmentVariableW(assignment.name.c_str(), assignment.text.c_str());
  }
}

// ---- The registry ------------------------------------------------------------------

/// What the value holds; nothing when it is of none of `types`.
std::optional<os::RegistryData> dataOf(HKEY key, const wchar_t* name, std::initializer_list<DWORD> types) {
  auto data = os::readRegistryValue(key, name, kMostBytes);
  if (!data || std::ranges::find(types, data->type) == types.end()) return std::nullopt;
  return std::move(*data);
}

/// A text value (REG_SZ alone, as the service reads its preferences).
std::optional<std::string> registryText(HKEY root, const std::wstring& path, const wchar_t* name) {
  const auto key = os::openRegistryKey(root, path.c_str(), KEY_QUERY_VALUE);
  if (!key) return std::nullopt;
  const auto data = dataOf(key->get(), name, {REG_SZ});
  if (!data) return std::nullopt;
  return StringUtils::utf16to8(data->text());
}

/// `text` with the variables that it names between percent signs in their place; empty
/// when the system cannot do that.
std::wstring expanded(const std::wstring& text) {
  std::wstring result(32768, L'\0');  // no variable holds more
  const DWORD size =
      ExpandEnvironmentStringsW(text.c_str(), result.data(), static_cast<DWORD>(result.size()));
  result.resize(size != 0 && size <= result.size() ? size - 1 : 0);
  return result;
}

/// The machine's variables are text values of a key. All are read before the first is
/// adopted, or one could change how the next expands.
std::vector<Assignment> machineVariables() {
  std::vector<Assignment> found;
  const auto key = os::openRegistryKey(HKEY_LOCAL_MACHINE, kMachineEnvironmentKey, KEY_READ);
  if (!key) return found;
  for (const std::wstring& name : os::registryValueNames(key->get())) {
    const auto data = dataOf(key->get(), name.c_str(), {REG_SZ, REG_EXPAND_SZ});
    if (!data) continue;
    const std::wstring text = data->text();
    std::wstring value = data->type == REG_SZ ? std::wstring(text.c_str()) : expanded(text);
    if (!value.empty() || data->type == REG_SZ) found.push_back({name, std::move(value)});
  }
  return found;
}

/// Those of the service alone are the texts of one value.
std::vector<Assignment> serviceVariables() {
  std::vector<Assignment> found;
  const auto key = os::openRegistryKey(
      HKEY_LOCAL_MACHINE, (std::wstring(kServicesKey) + names::kService.wide).c_str(), KEY_QUERY_VALUE);
  if (!key) return found;
  const auto data = dataOf(key->get(), L"Environment", {REG_MULTI_SZ});
  if (!data) return found;
  // A stored list need not be terminated; a text of the standard library is, so that
  // with one more zero character both ends are there.
  std::wstring texts = data->text();
  texts += L'\0';
  for (const std::wstring& variable : splitTexts(texts.c_str())) {
    if (auto assignment = parseAssignment(variable)) found.push_back(std::move(*assignment));
  }
  return found;
}

/// The last one of the name, in any letters: it is the one in force.
std::optional<std::string> textOfVariable(const std::vector<Assignment>& variables, std::string_view name) {
  std::optional<std::string> result;
  for (const auto& [one, text] : variables)
    if (os::equalsIgnoringCase(StringUtils::utf16to8(one), name)) result = StringUtils::utf16to8(text);
  return result;
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
  const ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  if (!manager) return lastFailure();
  const ServiceHandle service(
      OpenServiceW(manager.get(), names::kService.wide, SERVICE_QUERY_STATUS | SERVICE_QUERY_CONFIG));
  if (!service) return lastFailure();
  SERVICE_STATUS_PROCESS status{};
  DWORD size = 0;
  if (QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                           sizeof(status), &size) == 0) {
    return lastFailure();
  }
  ServiceFacts facts;
  facts.state = stateName(status.dwCurrentState);
  facts.running = status.dwCurrentState == SERVICE_RUNNING;
  facts.processId = status.dwProcessId;
  facts.exitCode = status.dwWin32ExitCode;
  readConfiguration(service.get(), facts);
  return facts;
}

void adoptServiceEnvironment() {
  if (!queryService()) return;
  forgetOwnVariables();
  for (const Assignment& assignment : machineVariables()) adopt(assignment);
  for (const Assignment& assignment : serviceVariables()) adopt(assignment);  // win over the machine's
}

std::string serviceTempFolder() {
  const auto machine = machineVariables();
  const auto service = serviceVariables();
  for (const std::string_view name : {"TMP", "TEMP"}) {
    auto text = textOfVariable(service, name);
    if (!text) text = textOfVariable(machine, name);
    if (text && !text->empty()) return *text;
  }
  return {};
}

std::vector<std::string> applicationDataFolders() {
  adoptServiceEnvironment();
  const auto service = queryService();
  const std::wstring user = StringUtils::utf8to16(identifierOf(service ? service->account : "")) + L"\\";
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
  const std::wstring user = StringUtils::utf8to16(identifierOf(service ? service->account : "")) + L"\\";
  const auto own = service ? ownFoldersOf(service->program) : ownFolders();
  const std::string ofService = logFolder(
      HKEY_USERS, user, registryText(HKEY_USERS, user + kFoldersKey, L"Local AppData").value_or(""), own);
  const std::string ofUser =
      logFolder(HKEY_CURRENT_USER, L"", FileUtils::applicationDataDirectory(false, false), own);
  return ofService.empty() || lastWritten(ofUser) > lastWritten(ofService) ? ofUser : ofService;
}

}  // namespace zarn::tool
