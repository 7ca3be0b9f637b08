#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <shlobj.h>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <utility>

#include "util/file_utils.h"
#include "util/file_utils_platform.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/string_utils.h"
#include "util/windows_handles.h"

namespace zarn::FileUtils {

boost::filesystem::path toPath(std::string_view path) {
  return boost::filesystem::path(StringUtils::utf8to16(withLongPathPrefix(path)));
}

std::string toUtf8(const boost::filesystem::path& path) {
  return StringUtils::utf16to8(path.native());
}

namespace platform {

const char kSeparator = '\\';

bool isSeparator(char c) noexcept {
  return c == '\\' || c == '/';
}

std::string userApplicationDataFolder() {
  wchar_t folder[MAX_PATH] = {};
  if (SHGetSpecialFolderPathW(nullptr, folder, CSIDL_LOCAL_APPDATA, TRUE) == FALSE) {
    logFatal("SHGetSpecialFolderPath(CSIDL_LOCAL_APPDATA) failed: %d", lastSystemError());
  }
  return StringUtils::utf16to8(folder);
}

std::string executablePath() {
  constexpr DWORD longestPath = 32768;
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0) logFatal("GetModuleFileNameW failed: %d", lastSystemError());
    if (length < path.size()) {
      path.resize(length);
      return StringUtils::utf16to8(path);
    }
    if (path.size() >= longestPath) logFatal("GetModuleFileNameW failed: %d", lastSystemError());
    path.resize(longestPath);
  }
}

}  // namespace platform

namespace {

// A pipe's server learns nothing about us and cannot impersonate us.
constexpr DWORD kAnonymous = SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS;

struct OpenMode {
  DWORD access = GENERIC_READ;
  DWORD disposition = OPEN_EXISTING;
  int descriptorFlags = _O_TEXT;
};

OpenMode parseMode(const char* mode) {
  OpenMode result;
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

/// Whether the handle opened a file of the name that was asked for. A junction in
/// the path can lead to a name that is itself a link to any file of any name.
bool hasRequestedName(HANDLE file, const std::wstring& path) {
  const auto lastName = [](const std::wstring& text) { return text.substr(text.find_last_of(L"\\/") + 1); };
  const std::wstring final = finalPath(file);
  const bool same = !final.empty() && _wcsicmp(lastName(final).c_str(), lastName(path).c_str()) == 0;
  if (!same) SetLastError(ERROR_ACCESS_DENIED);
  return same;
}

/// Opens for safeOpen; with Links::Refuse nothing is truncated before the file
/// is known to be a plain one with a single name.
FileHandle openHandle(const std::wstring& path, const OpenMode& mode, DWORD sharing, Links links) {
  const bool refuse = links == Links::Refuse;
  const bool truncateLater = refuse && mode.disposition == CREATE_ALWAYS;
  constexpr DWORD cautious = FILE_FLAG_OPEN_REPARSE_POINT | kAnonymous;
  const DWORD flags = FILE_ATTRIBUTE_NORMAL | (refuse ? cautious : 0U);
  FileHandle handle(CreateFileW(path.c_str(), mode.access, sharing, nullptr,
                                truncateLater ? OPEN_ALWAYS : mode.disposition, flags, nullptr));
  if (!handle || !refuse) return handle;
  const bool plain = isPlainFileWithOneName(handle.get()) && hasRequestedName(handle.get(), path);
  if (!plain || (truncateLater && SetEndOfFile(handle.get()) == 0)) handle.reset();
  return handle;
}

/// An empty file in `folder` that goes when it is closed. Invalid, with the last error
/// set, when it cannot be made or the folder's name leads elsewhere by now.
FileHandle makeMarker(const std::wstring& folder) {
  static std::atomic<unsigned> number{0};
  const std::wstring path = folder + L"\\~held-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                            std::to_wstring(GetTickCount64()) + L"-" + std::to_wstring(++number);
  FileHandle marker(CreateFileW(path.c_str(), GENERIC_WRITE | DELETE, 0, nullptr, CREATE_NEW,
                                FILE_FLAG_DELETE_ON_CLOSE | FILE_FLAG_OPEN_REPARSE_POINT | kAnonymous,
                                nullptr));
  if (marker && _wcsicmp(finalPath(marker.get()).c_str(), path.c_str()) != 0) {
    marker.reset();
    SetLastError(ERROR_ACCESS_DENIED);
  }
  return marker;
}

struct FolderHandles {
  FileHandle folder;
  FileHandle marker;
};

/// The folder's real name; empty, with the last error set, when it is no folder to hold.
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

}  // namespace

HeldFolder holdFolder(std::string_view path, Links links, HoldFor use) {
  const auto handles = std::make_shared<FolderHandles>();
  const DWORD flags =
      FILE_FLAG_BACKUP_SEMANTICS | kAnonymous | (links == Links::Refuse ? FILE_FLAG_OPEN_REPARSE_POINT : 0U);
  handles->folder.reset(CreateFileW(toPath(path).c_str(), FILE_LIST_DIRECTORY,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, flags,
                                    nullptr));
  const std::wstring real = handles->folder ? realFolderName(handles->folder.get()) : std::wstring();
  const bool wantsMarker = !real.empty() && use == HoldFor::Changes;
  if (wantsMarker) handles->marker = makeMarker(real);
  if (real.empty() || (wantsMarker && !handles->marker)) return {{}, {}, failureCode(lastSystemError())};
  return {handles, StringUtils::utf16to8(real), 0};
}

ScopedFile safeOpen(std::string_view path, const char* mode, bool shareDelete, Links links) {
  if (*mode == '\0') mode = "r";
  const OpenMode parsed = parseMode(mode);
  const DWORD sharing =
      shareDelete ? FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE : DWORD{FILE_SHARE_READ};
  FileHandle handle = openHandle(StringUtils::utf8to16(withLongPathPrefix(path)), parsed, sharing, links);
  if (!handle) {
    logLine(LogLevel::Error, "safe_fopen: CreateFileW for '%s' failed: %d", printable(path),
            lastSystemError());
    return nullptr;
  }

  const int descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(handle.get()), parsed.descriptorFlags);
  if (descriptor == -1) {
    const int error = errno;
    logLine(LogLevel::Error, "safe_fopen: _open_osfhandle failed with errno %d: %s", error,
            std::string_view(std::strerror(error)));
    return nullptr;
  }
  static_cast<void>(handle.release());  // the descriptor owns it now

  ScopedFile file(_fdopen(descriptor, mode));
  if (!file) {
    const int error = errno;
    _close(descriptor);
    logLine(LogLevel::Error, "safe_fopen: _fdopen failed with errno %d: %s", error,
            std::string_view(std::strerror(error)));
  }
  return file;
}

}  // namespace zarn::FileUtils
