#include "update/record_place.h"

#include <windows.h>

#include <aclapi.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "os/files.h"
#include "os/identity_win.h"
#include "os/text.h"
#include "util/product_names.h"

namespace zarn {
namespace {

static_assert(kFolderNotTrusted == ERROR_INVALID_OWNER);

std::string ownIdentifier() {
  KernelHandle token;
  if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.receive()) == 0) return {};
  return userOf(token);
}

bool isTrustedIdentifier(PSID identifier) {
  constexpr std::array<std::string_view, 3> trusted = {
      "S-1-5-18",                                                         // the system
      "S-1-5-32-544",                                                     // administrators
      "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464"};  // TrustedInstaller
  if (identifier == nullptr) return false;
  const std::string text = identifierText(identifier);
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

/// The folder's owner and access list.
Result<LocalMemory> lookUpRights(HANDLE folder) {
  LocalMemory descriptor;
  const DWORD error =
      GetSecurityInfo(folder, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, nullptr,
                      nullptr, nullptr, nullptr, descriptor.receive());
  if (error != ERROR_SUCCESS) return failure(error);
  return descriptor;
}

bool isRealFolder(HANDLE folder) {
  BY_HANDLE_FILE_INFORMATION information{};
  if (GetFileInformationByHandle(folder, &information) == 0) return false;
  constexpr DWORD kinds = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  return (information.dwFileAttributes & kinds) == FILE_ATTRIBUTE_DIRECTORY;
}

}  // namespace

std::string recordFolderPath() {
  const auto folder = os::machineDataFolder();
  return folder ? *folder + os::kSeparator + names::kRecordFolder.narrow : std::string();
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

Result<void> checkRecordFolder(std::string_view path) {
  const auto wide = os::wideFromUtf8(path);
  if (!wide) return failure(wide.error());
  // Nobody can keep us from asking this little: such an open takes no part in sharing.
  const FileHandle folder(CreateFileW(wide->c_str(), READ_CONTROL | FILE_READ_ATTRIBUTES,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  const auto descriptor = folder ? lookUpRights(folder.get()) : Result<LocalMemory>(lastFailure());
  if (!descriptor) {
    // Ours lets the service and every user ask.
    const bool isDenied = descriptor.error() == SystemError::accessDenied();
    return isDenied ? failure(kFolderNotTrusted) : failure(descriptor.error());
  }
  if (isRealFolder(folder.get()) && isTrustedDescriptor(descriptor->get())) return {};
  return failure(kFolderNotTrusted);
}

}  // namespace zarn
