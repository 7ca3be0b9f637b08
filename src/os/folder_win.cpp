#include "os/folder.h"

#include <windows.h>

#include <winternl.h>

#include <cstddef>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

#include "os/files_win.h"
#include "os/handles_win.h"
#include "os/text.h"

namespace zarn::os {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr ACCESS_MASK kLook = FILE_READ_ATTRIBUTES | SYNCHRONIZE;
constexpr ACCESS_MASK kListFolder = FILE_LIST_DIRECTORY | kLook;
/// The others may not rename or delete a folder that is held so.
constexpr DWORD kShareFolder = FILE_SHARE_READ | FILE_SHARE_WRITE;

HANDLE native(std::intptr_t handle) {
  return reinterpret_cast<HANDLE>(handle);
}

struct Request {
  ACCESS_MASK access = kLook;
  DWORD sharing = kShareAll;
  ULONG disposition = FILE_OPEN;
  ULONG options = 0;
};

/// Opens `name` in `folder` without following a link there and without waiting for
/// whoever has an opportunistic lock on it.
Result<FileHandle> openIn(HANDLE folder, const std::wstring& name, const Request& request) {
  constexpr std::size_t longest = std::numeric_limits<USHORT>::max() / sizeof(wchar_t) - 1;
  if (name.size() > longest) return failure(SystemError::invalidName());
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
  return failure(RtlNtStatusToDosError(status));
}

/// The folder's real name, when it is a folder to hold and no link.
Result<std::wstring> realFolderName(HANDLE folder) {
  BY_HANDLE_FILE_INFORMATION information{};
  if (GetFileInformationByHandle(folder, &information) == 0) return lastFailure();
  constexpr DWORD kinds = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  if ((information.dwFileAttributes & kinds) != FILE_ATTRIBUTE_DIRECTORY)
    return failure(SystemError::accessDenied());
  return finalPath(folder);
}

/// Opens a folder to list it, or, when somebody keeps it for himself, not even for that.
template <typename Open>
Result<FileHandle> openForListing(const Open& open) {
  Result<FileHandle> folder = open(kListFolder, kShareFolder);
  if (!folder && folder.error().code() == ERROR_SHARING_VIOLATION) folder = open(kLook, kShareAll);
  return folder;
}

std::intptr_t asNumber(FileHandle handle) {
  return reinterpret_cast<std::intptr_t>(handle.release());
}

ULONG dispositionOf(Existing existing) {
  return existing == Existing::Only ? FILE_OPEN : existing == Existing::Never ? FILE_CREATE : FILE_OPEN_IF;
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

void Folder::Traits::close(Handle handle) noexcept {
  CloseHandle(native(handle));
}

// Elsewhere the path is kept.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
Result<Folder> Folder::take(std::intptr_t handle, std::string /*path*/) {
  Folder result(handle, {});
  const auto real = realFolderName(native(handle));
  if (!real) return failure(real.error());
  auto path = utf8FromWide(*real);
  if (!path) return failure(path.error());
  result.path_ = std::move(*path);
  return result;
}

Result<Folder> Folder::open(const boost::filesystem::path& path, Links links) {
  const DWORD flags =
      FILE_FLAG_BACKUP_SEMANTICS | kAnonymous | (links == Links::Refuse ? FILE_FLAG_OPEN_REPARSE_POINT : 0U);
  auto folder = openForListing([&](ACCESS_MASK access, DWORD sharing) -> Result<FileHandle> {
    FileHandle handle(CreateFileW(path.c_str(), access, sharing, nullptr, OPEN_EXISTING, flags, nullptr));
    if (!handle) return lastFailure();
    return handle;
  });
  if (!folder) return failure(folder.error());
  return take(asNumber(std::move(*folder)), {});
}

Result<Folder> Folder::folder(const Name& name, Existing existing) const {
  auto folder = openForListing([&](ACCESS_MASK access, DWORD sharing) {
    return openIn(native(handle_.get()), name,
                  {access, sharing, dispositionOf(existing), FILE_DIRECTORY_FILE});
  });
  if (!folder) return failure(folder.error());
  return take(asNumber(std::move(*folder)), {});
}

OpenResult Folder::file(const Name& name, const char* mode, Existing existing) const {
  const auto fail = [](SystemError error) {
    return tl::unexpected<OpenFailure>({OpenFailure::Step::Open, error.code()});
  };
  const OpenMode parsed = parseMode(mode);
  const bool isNew = existing == Existing::Never;
  const ULONG disposition = parsed.disposition == OPEN_EXISTING ? FILE_OPEN : dispositionOf(existing);
  auto file = openIn(native(handle_.get()), name,
                     {parsed.access | (isNew ? DELETE : 0), kShareAll, disposition, FILE_NON_DIRECTORY_FILE});
  if (!file) return fail(file.error());
  // What was begun and cannot be used would keep the next one from being begun.
  const auto passes = isNew ? setPassing(file->get(), true) : Result<void>();
  const auto plain = isNew ? passes : checkPlainFileWithOneName(file->get());
  if (!plain) return fail(plain.error());
  const bool truncates = parsed.disposition == CREATE_ALWAYS;
  if (truncates && SetEndOfFile(file->get()) == 0) return fail(SystemError::last());
  return toStream(std::move(*file), parsed, mode);
}

Result<void> Folder::find(const Name& name) const {
  const auto found = openIn(native(handle_.get()), name, {});
  if (!found) return failure(found.error());
  return {};
}

Result<void> Folder::rename(const Name& from, const Name& to) const {
  const auto file = openIn(native(handle_.get()), from, {.access = DELETE});
  if (!file) return failure(file.error());
  std::vector<std::byte> bytes(sizeof(FILE_RENAME_INFORMATION) + to.size() * sizeof(wchar_t));
  FILE_RENAME_INFORMATION information{};
  information.ReplaceIfExists = TRUE;
  information.RootDirectory = native(handle_.get());
  information.FileNameLength = static_cast<ULONG>(to.size() * sizeof(wchar_t));
  constexpr std::size_t nameOffset = offsetof(FILE_RENAME_INFORMATION, FileName);
  std::memcpy(bytes.data(), &information, nameOffset);
  std::memcpy(bytes.data() + nameOffset, to.data(), information.FileNameLength);
  IO_STATUS_BLOCK result{};
  const NTSTATUS status = NtSetInformationFile(file->get(), &result, bytes.data(),
                                               static_cast<ULONG>(bytes.size()), FileRenameInformation);
  if (status < 0) return failure(RtlNtStatusToDosError(status));
  return {};
}

Result<void> Folder::remove(const Name& name) const {
  const auto file = openIn(native(handle_.get()), name, {.access = DELETE});
  if (!file) return failure(file.error());
  const auto removed = removeOpenedFile(file->get());
  if (removed || removed.error().code() != ERROR_ACCESS_DENIED) return removed;
  // An older system removes nothing that is read-only.
  const auto again = openIn(native(handle_.get()), name, {.access = DELETE | FILE_WRITE_ATTRIBUTES});
  FILE_BASIC_INFO writable{};
  writable.FileAttributes = FILE_ATTRIBUTE_NORMAL;  // the times, all zero, stay
  // Another name of the file may be somebody else's.
  if (!again || !checkPlainFileWithOneName(again->get()) ||
      SetFileInformationByHandle(again->get(), FileBasicInfo, &writable, sizeof(writable)) == 0) {
    return removed;
  }
  return removeOpenedFile(again->get());
}

Result<void> Folder::list(const std::function<void(const FolderEntry&)>& visit) const {
  std::vector<std::byte> bytes(std::size_t{64} << 10U);
  for (auto kind = FileFullDirectoryRestartInfo;; kind = FileFullDirectoryInfo) {
    if (GetFileInformationByHandleEx(native(handle_.get()), kind, bytes.data(),
                                     static_cast<DWORD>(bytes.size())) == 0) {
      // An empty volume has not even "." and "..".
      const DWORD error = GetLastError();
      if (error == ERROR_NO_MORE_FILES || error == ERROR_FILE_NOT_FOUND) return {};
      return failure(error);
    }
    visitEntries(bytes, visit);
  }
}

}  // namespace zarn::os
