#include "util/held_folder.h"

#include <windows.h>

#include <winternl.h>

#include <cstddef>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

#include "util/file_stream_win.h"
#include "util/string_utils.h"
#include "util/system_error.h"
#include "util/windows_handles.h"

namespace zarn::FileUtils {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr ACCESS_MASK kLook = FILE_READ_ATTRIBUTES | SYNCHRONIZE;
constexpr ACCESS_MASK kListFolder = FILE_LIST_DIRECTORY | kLook;
/// The others may not rename or delete a folder that is held so.
constexpr DWORD kShareFolder = FILE_SHARE_READ | FILE_SHARE_WRITE;

HANDLE native(std::intptr_t handle) {
  return reinterpret_cast<HANDLE>(handle);
}

std::uint32_t lastFailure() {
  return failureCode(GetLastError());
}

struct Request {
  ACCESS_MASK access = kLook;
  DWORD sharing = kShareAll;
  ULONG disposition = FILE_OPEN;
  ULONG options = 0;
};

/// Opens `name` in `folder` without following a link there and without waiting for
/// whoever has an opportunistic lock on it. Invalid, with the last error set, on failure.
FileHandle openIn(HANDLE folder, const std::wstring& name, const Request& request) {
  constexpr std::size_t longest = std::numeric_limits<USHORT>::max() / sizeof(wchar_t) - 1;
  if (name.size() > longest) {
    SetLastError(ERROR_INVALID_NAME);
    return {};
  }
  std::wstring text = name;
  UNICODE_STRING counted{};
  counted.Buffer = text.data();
  counted.Length = counted.MaximumLength = static_cast<USHORT>(text.size() * sizeof(wchar_t));
  SECURITY_QUALITY_OF_SERVICE anonymous{sizeof(anonymous), SecurityAnonymous, SECURITY_STATIC_TRACKING,
                                        FALSE};
  OBJECT_ATTRIBUTES attributes{};
  attributes.Length = sizeof(attributes);
  attributes.RootDirectory = folder;
  attributes.ObjectName = &counted;
  attributes.Attributes = OBJ_CASE_INSENSITIVE;
  attributes.SecurityQualityOfService = &anonymous;
  constexpr ULONG always = FILE_OPEN_REPARSE_POINT | FILE_COMPLETE_IF_OPLOCKED | FILE_SYNCHRONOUS_IO_NONALERT;
  IO_STATUS_BLOCK result{};
  HANDLE handle = nullptr;
  const NTSTATUS status =
      NtCreateFile(&handle, request.access | kLook, &attributes, &result, nullptr, FILE_ATTRIBUTE_NORMAL,
                   request.sharing, request.disposition, request.options | always, nullptr, 0);
  if (status >= 0) return FileHandle(handle);
  SetLastError(failureCode(RtlNtStatusToDosError(status)));
  return {};
}

/// The folder's real name; empty, with the last error set, when it is none to hold.
std::wstring realFolderName(HANDLE folder) {
  BY_HANDLE_FILE_INFORMATION information{};
  if (GetFileInformationByHandle(folder, &information) == 0) return {};
  constexpr DWORD kinds = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  if ((information.dwFileAttributes & kinds) != FILE_ATTRIBUTE_DIRECTORY) {
    SetLastError(ERROR_ACCESS_DENIED);
    return {};
  }
  return finalPath(folder);
}

/// Opens a folder to list it, or, when somebody keeps it for himself, not even for that.
template <typename Open>
FileHandle openFolder(const Open& open) {
  FileHandle folder = open(kListFolder, kShareFolder);
  if (!folder && GetLastError() == ERROR_SHARING_VIOLATION) folder = open(kLook, kShareAll);
  return folder;
}

ULONG dispositionOf(Existing existing) {
  return existing == Existing::Only ? FILE_OPEN : existing == Existing::Never ? FILE_CREATE : FILE_OPEN_IF;
}

/// FileDispositionInfoEx, which the headers keep for newer targets.
constexpr auto kDispositionInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);

template <typename Information>
std::uint32_t inform(HANDLE file, FILE_INFO_BY_HANDLE_CLASS kind, Information information) {
  return SetFileInformationByHandle(file, kind, &information, sizeof(information)) != 0 ? 0 : lastFailure();
}

/// Removes a name at once where the system can, though others have the file open or it
/// is read-only; else as soon as nobody has it open.
std::uint32_t removeOpened(HANDLE file) {
  constexpr DWORD atOnce = FILE_DISPOSITION_FLAG_DELETE | FILE_DISPOSITION_FLAG_POSIX_SEMANTICS |
                           FILE_DISPOSITION_FLAG_IGNORE_READONLY_ATTRIBUTE;
  if (inform(file, kDispositionInfoEx, FILE_DISPOSITION_INFO_EX{atOnce}) == 0) return 0;
  return inform(file, FileDispositionInfo, FILE_DISPOSITION_INFO{TRUE});
}

/// Calls `visit` for the entries that one call of the system has put into `bytes`.
template <typename Visit>
void visitEntries(const std::vector<std::byte>& bytes, const Visit& visit) {
  for (std::size_t offset = 0;;) {
    FILE_FULL_DIR_INFO entry{};
    std::memcpy(&entry, bytes.data() + offset, offsetof(FILE_FULL_DIR_INFO, FileName));
    std::wstring name(entry.FileNameLength / sizeof(wchar_t), L'\0');
    std::memcpy(name.data(), bytes.data() + offset + offsetof(FILE_FULL_DIR_INFO, FileName),
                name.size() * sizeof(wchar_t));
    const bool isFolder = (entry.FileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    const bool isLink = (entry.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    if (name != L"." && name != L"..") visit({std::move(name), !isFolder && !isLink, isFolder});
    if (entry.NextEntryOffset == 0) return;
    offset += entry.NextEntryOffset;
  }
}

}  // namespace

const std::uint32_t HeldFolder::kInvalidName = ERROR_INVALID_NAME;
const std::uint32_t HeldFolder::kRefused = ERROR_ACCESS_DENIED;

void HeldFolder::Traits::close(Handle handle) noexcept {
  CloseHandle(native(handle));
}

bool HeldFolder::isMissing(std::uint32_t error) noexcept {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

bool HeldFolder::isNotEmpty(std::uint32_t error) noexcept {
  return error == ERROR_DIR_NOT_EMPTY;
}

HeldFolder HeldFolder::take(std::intptr_t handle) {
  HeldFolder result;
  if (handle != Traits::invalid()) result.handle_.reset(handle);
  const std::wstring real = result ? realFolderName(native(handle)) : std::wstring();
  if (real.empty()) return HeldFolder(lastFailure());
  result.path_ = StringUtils::utf16to8(real);
  return result;
}

HeldFolder HeldFolder::holdPath(std::string_view path, Links links) {
  const std::wstring wide = toPath(path).native();
  const DWORD flags =
      FILE_FLAG_BACKUP_SEMANTICS | kAnonymous | (links == Links::Refuse ? FILE_FLAG_OPEN_REPARSE_POINT : 0U);
  FileHandle folder = openFolder([&](ACCESS_MASK access, DWORD sharing) {
    return FileHandle(CreateFileW(wide.c_str(), access, sharing, nullptr, OPEN_EXISTING, flags, nullptr));
  });
  return take(reinterpret_cast<std::intptr_t>(folder.release()));
}

HeldFolder HeldFolder::holdName(const Name& name, Existing existing) const {
  FileHandle folder = openFolder([&](ACCESS_MASK access, DWORD sharing) {
    return openIn(native(handle_.get()), name,
                  {access, sharing, dispositionOf(existing), FILE_DIRECTORY_FILE});
  });
  return take(reinterpret_cast<std::intptr_t>(folder.release()));
}

ScopedFile HeldFolder::openName(const Name& name, const char* mode, Existing existing,
                                std::uint32_t& error) const {
  const OpenMode parsed = parseMode(mode);
  const bool truncates = parsed.disposition == CREATE_ALWAYS;
  const ULONG disposition = parsed.disposition == OPEN_EXISTING ? FILE_OPEN : dispositionOf(existing);
  FileHandle file =
      openIn(native(handle_.get()), name, {parsed.access, kShareAll, disposition, FILE_NON_DIRECTORY_FILE});
  if (!file || !isPlainFileWithOneName(file.get()) || (truncates && SetEndOfFile(file.get()) == 0)) {
    error = lastFailure();
    return nullptr;
  }
  error = ERROR_GEN_FAILURE;
  return toStream(std::move(file), parsed, mode);
}

std::uint32_t HeldFolder::findName(const Name& name) const {
  return openIn(native(handle_.get()), name, {}) ? 0 : lastFailure();
}

std::uint32_t HeldFolder::renameName(const Name& from, const Name& to) const {
  const FileHandle file = openIn(native(handle_.get()), from, {.access = DELETE});
  if (!file) return lastFailure();
  std::vector<std::byte> bytes(sizeof(FILE_RENAME_INFORMATION) + to.size() * sizeof(wchar_t));
  FILE_RENAME_INFORMATION information{};
  information.ReplaceIfExists = TRUE;
  information.RootDirectory = native(handle_.get());
  information.FileNameLength = static_cast<ULONG>(to.size() * sizeof(wchar_t));
  constexpr std::size_t nameOffset = offsetof(FILE_RENAME_INFORMATION, FileName);
  std::memcpy(bytes.data(), &information, nameOffset);
  std::memcpy(bytes.data() + nameOffset, to.data(), information.FileNameLength);
  IO_STATUS_BLOCK result{};
  const NTSTATUS status = NtSetInformationFile(file.get(), &result, bytes.data(),
                                               static_cast<ULONG>(bytes.size()), FileRenameInformation);
  return status >= 0 ? 0 : failureCode(RtlNtStatusToDosError(status));
}

std::uint32_t HeldFolder::removeName(const Name& name) const {
  const FileHandle file = openIn(native(handle_.get()), name, {.access = DELETE});
  if (!file) return lastFailure();
  const std::uint32_t error = removeOpened(file.get());
  if (error != ERROR_ACCESS_DENIED) return error;
  // An older system removes nothing that is read-only.
  const FileHandle again = openIn(native(handle_.get()), name, {.access = DELETE | FILE_WRITE_ATTRIBUTES});
  FILE_BASIC_INFO writable{};
  writable.FileAttributes = FILE_ATTRIBUTE_NORMAL;  // the times, all zero, stay
  // Another name of the file may be somebody else's.
  if (!again || !isPlainFileWithOneName(again.get()) || inform(again.get(), FileBasicInfo, writable) != 0)
    return error;
  return removeOpened(again.get());
}

std::uint32_t HeldFolder::listNames(const std::function<void(const FolderEntry&)>& visit) const {
  std::vector<std::byte> bytes(std::size_t{64} << 10U);
  for (auto kind = FileFullDirectoryRestartInfo;; kind = FileFullDirectoryInfo) {
    if (GetFileInformationByHandleEx(native(handle_.get()), kind, bytes.data(),
                                     static_cast<DWORD>(bytes.size())) == 0) {
      // An empty volume has not even "." and "..".
      const DWORD error = GetLastError();
      return error == ERROR_NO_MORE_FILES || error == ERROR_FILE_NOT_FOUND ? 0 : failureCode(error);
    }
    visitEntries(bytes, visit);
  }
}

}  // namespace zarn::FileUtils
