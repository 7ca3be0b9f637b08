#include "util/windows_handles.h"

namespace zarn {

std::wstring finalPath(HANDLE file) {
  constexpr DWORD longestPath = 32'768;
  std::wstring path(longestPath, L'\0');
  const DWORD length = GetFinalPathNameByHandleW(file, path.data(), longestPath, FILE_NAME_NORMALIZED);
  path.resize(length < longestPath ? length : 0);
  return path;
}

}  // namespace zarn
