#include <windows.h>

#include <aclapi.h>
#include <sddl.h>
#include <shlobj.h>

#include <algorithm>
#include <array>
#include <cstddef>

#include "os/error_text.h"
#include "os/handles_win.h"
#include "update/record_folder.h"
#include "util/io_deadline.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/string_utils.h"

namespace zarn {
namespace {

static_assert(kFolderNotTrusted == ERROR_INVALID_OWNER);

/// Nothing is inherited from above, where every user may add files.
constexpr wchar_t kFolderSecurity[] =
    L"D:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)";  // 0x1200a9: read and list

/// How often a place is cleared in which others keep putting something.
constexpr int kTries = 4;

/// "S-1-5-18"; empty when it cannot be had.
std::wstring identifierText(PSID identifier) {
  wchar_t* text = nullptr;
  if (ConvertSidToStringSidW(identifier, &text) == 0) return {};
  const LocalMemory owner(text);
  return text;
}

std::wstring ownIdentifier() {
  KernelHandle token;
  if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.receive()) == 0) return {};
  alignas(TOKEN_USER) std::array<std::byte, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> buffer{};
  DWORD size = 0;
  if (GetTokenInformation(token.get(), TokenUser, buffer.data(), static_cast<DWORD>(buffer.size()), &size) ==
      0) {
    return {};
  }
  return identifierText(reinterpret_cast<const TOKEN_USER*>(buffer.data())->User.Sid);
}

bool isTrustedIdentifier(PSID identifier) {
  constexpr std::array<const wchar_t*, 3> trusted = {
      L"S-1-5-18",                                                         // the system
      L"S-1-5-32-544",                                                     // administrators
      L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464"};  // TrustedInstaller
  if (identifier == nullptr) return false;
  const std::wstring text = identifierText(identifier);
  return !text.empty() &&
         (std::find(trusted.begin(), trusted.end(), text) != trusted.end() || text == ownIdentifier());
}

/// Stands for the owner, who is judged apart, or for whoever adds something.
bool isOwnersPlaceholder(PSID identifier) {
  return IsWellKnownSid(identifier, WinCreatorOwnerSid) != 0 ||
         IsWellKnownSid(identifier, WinCreatorOwnerRightsSid) != 0;
}

/// Whether an entry of an access list lets nobody write who is not trusted. Of entries
/// of kinds that are not known here it is not.
bool isHarmless(const void* entry) {
  constexpr ACCESS_MASK reading = FILE_GENERIC_READ | FILE_GENERIC_EXECUTE | GENERIC_READ | GENERIC_EXECUTE;
  const auto type = static_cast<const ACE_HEADER*>(entry)->AceType;
  if (type == ACCESS_DENIED_ACE_TYPE) return true;
  if (type != ACCESS_ALLOWED_ACE_TYPE) return false;
  auto* const allowed = static_cast<const ACCESS_ALLOWED_ACE*>(entry);
  if ((allowed->Mask & ~reading) == 0) return true;
  // The identifier begins in the entry's last member and has a length of its own.
  auto* const identifier = const_cast<DWORD*>(&allowed->SidStart);
  return isTrustedIdentifier(identifier) || isOwnersPlaceholder(identifier);
}

bool lookUp(HANDLE folder, LocalMemory& descriptor) {
  const DWORD error =
      GetSecurityInfo(folder, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, nullptr,
                      nullptr, nullptr, nullptr, descriptor.receive());
  if (error != ERROR_SUCCESS) SetLastError(error);
  return error == ERROR_SUCCESS;
}

bool isRealFolder(HANDLE folder) {
  BY_HANDLE_FILE_INFORMATION information{};
  if (GetFileInformationByHandle(folder, &information) == 0) return false;
  constexpr DWORD kinds = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  return (information.dwFileAttributes & kinds) == FILE_ATTRIBUTE_DIRECTORY;
}

std::uint32_t makeFolder(const std::string& path) {
  LocalMemory descriptor;
  if (ConvertStringSecurityDescriptorToSecurityDescriptorW(kFolderSecurity, SDDL_REVISION_1,
                                                           descriptor.receive(), nullptr) == 0) {
    return failureCode(GetLastError());
  }
  SECURITY_ATTRIBUTES attributes{sizeof(attributes), descriptor.get(), FALSE};
  return CreateDirectoryW(FileUtils::toPath(path).c_str(), &attributes) != 0 ? 0
                                                                             : failureCode(GetLastError());
}

/// The time in a form that can be part of a file's name.
std::string nameTime(std::chrono::system_clock::time_point time) {
  std::string text = isoTime(time);
  std::replace(text.begin(), text.end(), ':', '.');
  return text;
}

/// "Update History.2026-11-21T10.15.00.007Z.jsonl".
std::string spareHistoryName(const InstallRecord& record) {
  std::string name = names::kHistory.narrow;
  return name.insert(name.rfind('.'), "." + nameTime(record.began));
}

/// Out of the way, and kept: it may be evidence. A link is renamed, not followed.
std::uint32_t moveAside(const std::string& path) {
  const std::string target = path + " untrusted " + nameTime(std::chrono::system_clock::now());
  if (MoveFileExW(FileUtils::toPath(path).c_str(), FileUtils::toPath(target).c_str(), 0) == 0) {
    return failureCode(GetLastError());
  }
  logLine(LogLevel::Warn, "%s was not the service's own and is now %s.", printable(path), printable(target));
  return 0;
}

bool isMissing(std::uint32_t error) noexcept {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

/// 0 when a folder to be trusted is at the path, if need be a new one.
std::uint32_t establish(const std::string& path) {
  std::uint32_t problem = recordFolderProblem(path);
  for (int tries = 0; problem != 0 && tries < kTries; ++tries) {
    if (!isMissing(problem) && problem != kFolderNotTrusted) return problem;
    const std::uint32_t error = isMissing(problem) ? makeFolder(path) : moveAside(path);
    if (error != 0 && error != ERROR_ALREADY_EXISTS) return error;
    problem = recordFolderProblem(path);
  }
  return problem;
}

}  // namespace

std::string recordFolderPath() {
  wchar_t folder[MAX_PATH] = {};
  if (SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder) != S_OK) return {};
  return FileUtils::join(StringUtils::utf16to8(folder), names::kRecordFolder.narrow);
}

bool isTrustedDescriptor(void* descriptor) {
  PSID owner = nullptr;
  PACL entries = nullptr;
  BOOL isSet = FALSE;
  BOOL isDefault = FALSE;
  if (GetSecurityDescriptorOwner(descriptor, &owner, &isDefault) == 0 ||
      GetSecurityDescriptorDacl(descriptor, &isSet, &entries, &isDefault) == 0) {
    return false;
  }
  // Without a list everybody may do everything.
  if (!isTrustedIdentifier(owner) || isSet == FALSE || entries == nullptr) return false;
  for (DWORD i = 0; i < entries->AceCount; ++i) {
    void* entry = nullptr;
    if (GetAce(entries, i, &entry) == 0 || !isHarmless(entry)) return false;
  }
  return true;
}

std::uint32_t recordFolderProblem(std::string_view path) {
  // Nobody can keep us from asking this little: such an open takes no part in sharing.
  const FileHandle folder(CreateFileW(FileUtils::toPath(path).c_str(), READ_CONTROL | FILE_READ_ATTRIBUTES,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  LocalMemory descriptor;
  if (!folder || !lookUp(folder.get(), descriptor)) {
    const std::uint32_t error = failureCode(GetLastError());
    // Ours lets the service and every user ask.
    return error == ERROR_ACCESS_DENIED ? kFolderNotTrusted : error;
  }
  return isRealFolder(folder.get()) && isTrustedDescriptor(descriptor.get()) ? 0 : kFolderNotTrusted;
}

bool RecordFolder::hold() {
  if (held_) return true;
  std::uint32_t error = establish(path_);
  if (error == 0) {
    // What is to be trusted stays where it is: others cannot rename, replace or link it.
    auto held = FileUtils::HeldFolder::hold(path_, FileUtils::Links::Refuse, FileUtils::OwnPlaces::Allow);
    if (held)
      held_ = std::move(*held);
    else
      error = held.error().code();
  }
  if (error != 0 && !hasComplained_) {
    logLine(LogLevel::Error, "The update history cannot be kept in %s: %s", printable(path_),
            describeSystemError(error));
  }
  hasComplained_ = error != 0;
  return error == 0;
}

bool RecordFolder::prepare() {
  const IoDeadline deadline(kOpenLimit);
  const MutexLock lock(mutex_);
  return hold();
}

bool RecordFolder::append(const InstallRecord& record) {
  const MutexLock lock(mutex_);
  // Every user may read the files, and so ask for a lock on them that we would wait for.
  const IoDeadline deadline(kLogFileLimit);
  const HistoryNames& file = record.exitCode ? kHistoryNames : kRefusedNames;
  const std::string line = historyLine(record);
  if (hold()) {
    if (appendLine(*held_, file, line)) return true;
    // Any reader can keep the file from being written to, but not one that is not there
    // yet. Of refusals there could be any number of such files.
    const std::string spare = spareHistoryName(record);
    if (record.exitCode && appendLine(*held_, {spare, spare}, line)) return true;
  }
  logUnwrittenRecord();
  return false;
}

}  // namespace zarn
