#include "client/tool/files_win.h"

#include <windows.h>

#include <algorithm>
#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>

#include "util/file_utils.h"
#include "util/system_error.h"

namespace zarn::tool {

FileEnd readEnd(const std::string& path, std::int64_t maximumBytes) {
  FileEnd result;
  const auto file = FileUtils::safeOpen(path, "rb", true, FileUtils::Links::Refuse);
  if (!file) {
    result.error = failureCode(lastSystemError());
    return result;
  }
  if (_fseeki64(file.get(), 0, SEEK_END) == 0) {
    const std::int64_t size = _ftelli64(file.get());
    result.cut = size > maximumBytes;
    _fseeki64(file.get(), result.cut ? size - maximumBytes : 0, SEEK_SET);
    result.bytes.resize(static_cast<std::size_t>(std::clamp(size, std::int64_t{0}, maximumBytes)));
  }
  result.bytes.resize(std::fread(result.bytes.data(), 1, result.bytes.size(), file.get()));
  if (std::ferror(file.get()) != 0) result.error = failureCode(lastSystemError());
  return result;
}

FolderFiles filesIn(const std::string& folder) {
  namespace fs = boost::filesystem;
  FolderFiles result;
  boost::system::error_code error;
  fs::directory_iterator entry(FileUtils::toPath(folder), error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    boost::system::error_code ignored;
    if (entry->symlink_status(ignored).type() != fs::regular_file) continue;
    result.names.push_back(FileUtils::toUtf8(entry->path().filename()));
  }
  if (error) result.error = failureCode(static_cast<std::uint32_t>(error.value()));
  std::sort(result.names.begin(), result.names.end());
  return result;
}

bool mayBeFolder(const std::string& path) {
  const DWORD attributes = GetFileAttributesW(FileUtils::toPath(path).c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return GetLastError() == ERROR_ACCESS_DENIED;
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool isEmptyFolder(const std::string& path) {
  boost::system::error_code error;
  const auto native = FileUtils::toPath(path);
  return boost::filesystem::is_directory(native, error) && boost::filesystem::is_empty(native, error) &&
         !error;
}

bool isMissing(std::uint32_t error) noexcept {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

}  // namespace zarn::tool
