#include "client/tool/service_setup_win.h"

#include <windows.h>

#include <sddl.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "client/tool/registry_win.h"
#include "client/tool/service_query_win.h"
#include "os/handles.h"
#include "os/process.h"
#include "prefs/value_text.h"
#include "util/file_utils.h"
#include "util/path_judge.h"
#include "util/product_names.h"
#include "util/string_utils.h"

namespace zarn::tool {
namespace {

constexpr char kServiceKey[] = R"(SYSTEM\CurrentControlSet\Services\ZarnUpdateService)";
constexpr char kMachineEnvironmentKey[] = R"(SYSTEM\CurrentControlSet\Control\Session Manager\Environment)";
constexpr char kFoldersKey[] = R"(Software\Microsoft\Windows\CurrentVersion\Explorer\Shell Folders)";

struct LocalMemoryTraits {
  using Handle = LPWSTR;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle memory) noexcept { LocalFree(memory); }
};

struct EnvironmentBlockTraits {
  using Handle = LPWCH;
  static Handle invalid() noexcept { return nullptr; }
  static void close(Handle block) noexcept { FreeEnvironmentStringsW(block); }
};
using EnvironmentBlock = ScopedHandle<EnvironmentBlockTraits>;

/// What decides on a bundle; not TEMP and its kin, which are the service's alone.
bool concernsDecisions(std::wstring name) {
  std::transform(name.begin(), name.end(), name.begin(), [](wchar_t c) {
    return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
  });
  return name.starts_with(L"ZARN_MEDIA_SERVER_") || name.ends_with(L"_PROXY");
}

/// This user's variables must not stand in for those that the service has not.
void forgetOwnVariables() {
  const EnvironmentBlock block(GetEnvironmentStringsW());
  std::vector<std::wstring> names;
  for (const wchar_t* entry = block.get(); entry != nullptr && *entry != L'\0'; entry += wcslen(entry) + 1) {
    const std::wstring assignment(entry);
    const std::wstring name = assignment.substr(0, assignment.find(L'=', 1));
    if (concernsDecisions(name)) names.push_back(name);
  }
  for (const std::wstring& name : names) SetEnvironmentVariableW(name.c_str(), nullptr);
}

void adopt(const std::wstring& assignment) {
  const std::size_t sign = assignment.find(L'=', 1);
  if (sign == std::wstring::npos || !concernsDecisions(assignment.substr(0, sign))) return;
  SetEnvironmentVariableW(assignment.substr(0, sign).c_str(), assignment.c_str() + sign + 1);
}

/// The security identifier of a service's account as text; empty when it has none.
std::string identifierOf(std::string account) {
  if (account.empty() || account == "LocalSystem") return "S-1-5-18";
  if (account.starts_with(".\\")) account.erase(0, 2);
  const std::wstring name = StringUtils::utf8to16(account);
  std::vector<std::byte> identifier(SECURITY_MAX_SID_SIZE);
  std::wstring domain(256, L'\0');
  auto size = static_cast<DWORD>(identifier.size());
  auto domainSize = static_cast<DWORD>(domain.size());
  SID_NAME_USE use{};
  if (LookupAccountNameW(nullptr, name.c_str(), identifier.data(), &size, domain.data(), &domainSize, &use) ==
      0) {
    return {};
  }
  ScopedHandle<LocalMemoryTraits> text;
  if (ConvertSidToStringSidW(identifier.data(), text.receive()) == 0) return {};
  return StringUtils::utf16to8(text.get());
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

/// As the service derives it, from its account's part of the registry.
std::string logFolder(HKEY root, const std::string& prefix, const std::string& localAppData,
                      const std::vector<std::string>& ownFolders) {
  // A stored value wins over the override, an empty one too.
  const auto stored =
      registryText(root, prefix + names::kPreferencesKey.narrow, names::kLocalAppDataPathValue.narrow);
  std::string base = stored ? *stored : defaultAppDataPath();
  if (base.empty() || !isUsed(base, ownFolders)) base = localAppData;
  return base.empty()
             ? base
             : FileUtils::join(FileUtils::join(base, names::kProductFolder.narrow), names::kLogs.narrow);
}

/// When the service last wrote its log there; 0 for never.
std::uint64_t lastWritten(const std::string& folder) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  const auto log = FileUtils::toPath(FileUtils::join(folder, names::kCurrentLog.narrow));
  if (GetFileAttributesExW(log.c_str(), GetFileExInfoStandard, &data) == 0) return 0;
  return std::uint64_t{data.ftLastWriteTime.dwHighDateTime} << 32U | data.ftLastWriteTime.dwLowDateTime;
}

}  // namespace

void adoptServiceEnvironment() {
  if (!queryService().facts) return;
  forgetOwnVariables();
  for (const std::wstring& assignment : registryAssignments(HKEY_LOCAL_MACHINE, kMachineEnvironmentKey)) {
    adopt(assignment);
  }
  for (const std::wstring& assignment : registryTexts(HKEY_LOCAL_MACHINE, kServiceKey, "Environment")) {
    adopt(assignment);
  }
}

std::string serviceLogFolder(const std::string& given) {
  if (!given.empty()) return given;
  adoptServiceEnvironment();
  const ServiceQuery query = queryService();
  const std::string user = identifierOf(query.facts ? query.facts->account : "") + "\\";
  const auto own = query.facts ? ownFoldersOf(query.facts->program) : ownFolders();
  const std::string ofService = logFolder(
      HKEY_USERS, user, registryText(HKEY_USERS, user + kFoldersKey, "Local AppData").value_or(""), own);
  const std::string ofUser =
      logFolder(HKEY_CURRENT_USER, "", FileUtils::applicationDataDirectory(false, false), own);
  return ofService.empty() || lastWritten(ofUser) > lastWritten(ofService) ? ofUser : ofService;
}

}  // namespace zarn::tool
