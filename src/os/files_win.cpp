#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <shlobj.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "os/files_win.h"
#include "os/text.h"

namespace zarn::os {

const char kSeparator = '\\';
const bool kPathsNameDrives = true;

bool isSeparator(char c) noexcept {
  return c == '\\' || c == '/';
}

Result<boost::filesystem::path> pathFromUtf8(std::string_view text) {
  auto wide = wideFromUtf8(text);
  if (!wide) return failure(wide.error());
  return boost::filesystem::path(std::move(*wide));
}

Result<std::string> utf8FromPath(const boost::filesystem::path& path) {
  return utf8FromWide(path.native());
}

namespace {

constexpr std::size_t kDriveAt = 4;                ///< behind "\\?\"
constexpr std::size_t kRootLength = kDriveAt + 3;  ///< "\\?\C:\"

HANDLE handleOf(std::FILE& file) {
  return reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(&file)));
}

Result<std::wstring> realWidePath(std::wstring path) {
  std::wstring rest;
  for (;;) {
    // Attributes alone: no right to read is needed, and nobody's lock is in the way.
    const FileHandle folder(CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | kAnonymous, nullptr));
    if (folder) {
      auto real = finalPath(folder.get());
      if (real) *real += rest;
      return real;
    }
    const SystemError error = SystemError::last();
    if (!error.isNotFound() || path.size() <= kRootLength) return failure(error);
    const std::size_t cut = path.rfind(L'\\');
    rest.insert(0, path, cut);
    path.resize(std::max(cut, kRootLength));
  }
}

/// One of the folders that the shell knows by number.
Result<std::string> shellFolder(int folder, BOOL create) {
  wchar_t path[MAX_PATH] = {};
  if (SHGetSpecialFolderPathW(nullptr, path, folder, create) == FALSE) return lastFailure();
  return utf8FromWide(path);
}

}  // namespace

bool isOnNetworkDrive(const std::string& path) {
  const std::string root = path.substr(kDriveAt, 2) + '\\';
  const UINT type = GetDriveTypeA(root.c_str());
  return type == DRIVE_REMOTE || type == DRIVE_UNKNOWN;  // which also says that it could not be found out
}

Result<std::string> realPath(const std::string& path) {
  const auto wide = wideFromUtf8(path);
  if (!wide) return failure(wide.error());
  const auto real = realWidePath(*wide);
  if (!real) return failure(real.error());
  return utf8FromWide(*real);
}

Result<std::string> userDataFolder() {
  return shellFolder(CSIDL_LOCAL_APPDATA, TRUE);
}

Result<std::string> machineDataFolder() {
  return shellFolder(CSIDL_COMMON_APPDATA, FALSE);
}

OpenMode parseMode(const char* mode) {
  OpenMode result;
  result.descriptorFlags = _O_TEXT;
  for (; *mode != '\0'; ++mode) {
    switch (*mode) {
      case 'r':
        result.access = GENERIC_READ;
        result.disposition = OPEN_EXISTING;
        break;
      case 'w':
        result.access = GENERIC_WRITE;
        result.disposition = CREATE_ALWAYS;
        break;
      case 'a':
        result.access = FILE_APPEND_DATA;
        result.disposition = OPEN_ALWAYS;
        result.descriptorFlags |= _O_APPEND;
        break;
      case '+':
        result.access = GENERIC_READ | GENERIC_WRITE;
        break;
      case 'b':
        result.descriptorFlags &= ~_O_TEXT;
        break;
      default:
        break;
    }
  }
  return result;
}

namespace {

tl::unexpected<OpenFailure> openFailure(OpenFailure::Step step, std::uint32_t code) {
  return tl::unexpected<OpenFailure>({step, failureCode(code)});
}

}  // namespace

OpenResult toStream(FileHandle handle, const OpenMode& parsed, const char* mode) {
  const int descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(handle.get()), parsed.descriptorFlags);
  if (descriptor == -1) return openFailure(OpenFailure::Step::Descriptor, static_cast<std::uint32_t>(errno));
  static_cast<void>(handle.release());  // the descriptor owns it now
  ScopedFile file(_fdopen(descriptor, mode));
  if (!file) {
    const auto error = static_cast<std::uint32_t>(errno);
    _close(descriptor);
    return openFailure(OpenFailure::Step::Stream, error);
  }
  return file;
}

namespace {

/// With Links::Refuse nothing is truncated before the file is known to be a plain one
/// with a single name.
Result<FileHandle> openHandle(const wchar_t* path, const OpenMode& mode, DWORD sharing, Links links) {
  const bool refuse = links == Links::Refuse;
  const bool truncateLater = refuse && mode.disposition == CREATE_ALWAYS;
  constexpr DWORD cautious = FILE_FLAG_OPEN_REPARSE_POINT | kAnonymous;
  const DWORD flags = FILE_ATTRIBUTE_NORMAL | (refuse ? cautious : 0U);
  FileHandle handle(CreateFileW(path, mode.access, sharing, nullptr,
                                truncateLater ? OPEN_ALWAYS : mode.disposition, flags, nullptr));
  if (!handle) return lastFailure();
  if (!refuse) return handle;
  if (const auto plain = checkPlainFileWithOneName(handle.get()); !plain) return failure(plain.error());
  if (truncateLater && SetEndOfFile(handle.get()) == 0) return lastFailure();
  return handle;
}

}  // namespace

OpenResult openStream(const boost::filesystem::path& path, const char* mode, Sharing sharing, Links links) {
  const OpenMode parsed = parseMode(mode);
  constexpr DWORD all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  auto handle =
      openHandle(path.c_str(), parsed, sharing == Sharing::All ? all : DWORD{FILE_SHARE_READ}, links);
  if (!handle) return openFailure(OpenFailure::Step::Open, handle.error().code());
  return toStream(std::move(*handle), parsed, mode);
}

Result<ScopedFile> openPlainFile(const boost::filesystem::path& path) {
  // The installer may still be writing.
  FileHandle handle(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | kAnonymous, nullptr));
  if (!handle) return lastFailure();
  if (!checkPlainFileWithOneName(handle.get())) return ScopedFile();
  auto file = toStream(std::move(handle), parseMode("rb"), "rb");
  if (!file) return failure(ERROR_TOO_MANY_OPEN_FILES);
  return std::move(*file);
}

bool writeThrough(std::FILE& file, std::string_view text) noexcept {
  constexpr std::size_t most = 1 << 20;  // the library's own count of a call's bytes is an int
  while (!text.empty()) {
    const int written =
        _write(_fileno(&file), text.data(), static_cast<unsigned>(std::min(text.size(), most)));
    if (written <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool cutFile(std::FILE& file, std::int64_t bytes) noexcept {
  // A failed flush has already thrown away what it could not write.
  return _chsize_s(_fileno(&file), bytes) == 0;
}

bool emptyFile(std::FILE& file) noexcept {
  return cutFile(file, 0) && _lseeki64(_fileno(&file), 0, SEEK_SET) == 0;
}

Result<void> keepFile(std::FILE& file) noexcept {
  return setPassing(handleOf(file), false);
}

std::int64_t seekToEnd(std::FILE& file) noexcept {
  return ::_fseeki64(&file, 0, SEEK_END) == 0 ? ::_ftelli64(&file) : -1;
}

void copyFileTime(std::FILE& from, std::FILE& to) noexcept {
  FILETIME written{};
  if (GetFileTime(handleOf(from), nullptr, nullptr, &written) != 0)
    SetFileTime(handleOf(to), nullptr, nullptr, &written);
}

}  // namespace zarn::os
