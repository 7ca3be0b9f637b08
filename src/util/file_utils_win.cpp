#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <shlobj.h>
#include <cerrno>
#include <cstring>
#include <utility>

#include "util/file_stream_win.h"
#include "util/file_utils.h"
#include "util/file_utils_platform.h"
#include "util/logging.h"
#include "util/printable.h"
#include "util/string_utils.h"

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

ScopedFile toStream(FileHandle handle, const OpenMode& parsed, const char* mode) {
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

namespace {

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
  const bool plain = isPlainFileWithOneName(handle.get());
  if (!plain || (truncateLater && SetEndOfFile(handle.get()) == 0)) handle.reset();
  return handle;
}

}  // namespace

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
  return toStream(std::move(handle), parsed, mode);
}

}  // namespace zarn::FileUtils
