#include "os/handles_win.h"

namespace zarn {

Result<void> checkPlainFileWithOneName(HANDLE file) noexcept {
  if (GetFileType(file) != FILE_TYPE_DISK) return failure(ERROR_BAD_FILE_TYPE);
  BY_HANDLE_FILE_INFORMATION information{};
  if (GetFileInformationByHandle(file, &information) == 0) return lastFailure();
  constexpr DWORD unwanted = FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY;
  const bool isPlain = (information.dwFileAttributes & unwanted) == 0 && information.nNumberOfLinks == 1;
  if (!isPlain) return failure(SystemError::accessDenied());
  return {};
}

Result<void> removeOpenedFile(HANDLE file) noexcept {
  // FileDispositionInfoEx, which the headers keep for newer targets.
  constexpr auto dispositionInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);
  FILE_DISPOSITION_INFO_EX atOnce{FILE_DISPOSITION_FLAG_DELETE | FILE_DISPOSITION_FLAG_POSIX_SEMANTICS |
                                  FILE_DISPOSITION_FLAG_IGNORE_READONLY_ATTRIBUTE};
  if (SetFileInformationByHandle(file, dispositionInfoEx, &atOnce, sizeof(atOnce)) != 0) return {};
  return setPassing(file, true);
}

Result<void> setPassing(HANDLE file, bool passes) noexcept {
  FILE_DISPOSITION_INFO atTheEnd{static_cast<BOOLEAN>(passes)};
  return resultOf(SetFileInformationByHandle(file, FileDispositionInfo, &atTheEnd, sizeof(atTheEnd)) != 0);
}

Result<std::wstring> finalPath(HANDLE file) {
  constexpr DWORD longestPath = 32'768;
  std::wstring path(longestPath, L'\0');
  const DWORD length = GetFinalPathNameByHandleW(file, path.data(), longestPath, FILE_NAME_NORMALIZED);
  if (length == 0) return lastFailure();
  if (length >= longestPath) return failure(ERROR_FILENAME_EXCED_RANGE);
  path.resize(length);
  return path;
}

}  // namespace zarn
